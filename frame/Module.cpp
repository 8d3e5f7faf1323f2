#include "Module.h"

#include <atomic>
#include <cstdlib>

#include "Platform.h"
#include "Tkadv.h"
#include "kestrel/Notifier.h"
#include "vxCommon.h"

namespace KESTREL {
namespace {

// Success codes of the toolkit's start-up calls; anything else is a failure to report.
constexpr int kInitialised = 1;
constexpr int kAlreadyInitialised = 4095;
constexpr int kRegistered = 1;
constexpr int kAlreadyRegistered = 4000;
constexpr int kInformation = 3;

struct Toolkit {
  void* module;
  TK_Library_Initialization_Function initialise;
  TK_Register_Application_Function registerApplication;
  TK_Error_Message_Function errorMessage;
  TK_Library_Release_Function release;
};

// Plain data only: the unload-time destructor may run after other static objects are gone.
bool attached = false;
bool haveSlot = false;
platform::ThreadSlot slot = 0;
Toolkit toolkit = {};
int applicationId = 0;
std::atomic<int> liveBlocks{0};

// The library keeps no toolkit settings of its own; the toolkit falls back on its defaults.
int GiveNoSetting(const char* /*name*/, char* value, int capacity) {
  if (value && capacity > 0) value[0] = '\0';
  return 0;
}

void FreeBlock(void* block) {
  std::free(block);
  --liveBlocks;
}

void* MakeBlock() {
  void* block = std::calloc(1, kScratchBlockSize);
  if (!block) return nullptr;
  if (!platform::SetThreadSlotValue(slot, block)) {
    std::free(block);
    return nullptr;
  }
  ++liveBlocks;
  return block;
}

template <class Function>
bool Resolve(void* module, const char* name, Function* function) {
  *function = reinterpret_cast<Function>(platform::FindModuleSymbol(module, name));
  return *function != nullptr;
}

// The toolkit is optional: without it (or with a library that lacks one of the four entry
// points) its steps are skipped and everything else works as usual.
bool LoadToolkit() {
  std::string fileName = platform::GetEnvironment(kToolkitVariable);
  if (fileName.empty()) fileName = kToolkitFileName;
  std::string error;
  void* module = platform::LoadModule(fileName, &error);
  if (!module) {
    Log("KESTREL - toolkit not loaded, toolkit steps skipped: " + error, kInformation);
    return false;
  }
  Toolkit found = {module, nullptr, nullptr, nullptr, nullptr};
  if (!Resolve(module, "TK_Library_Initialization", &found.initialise) ||
      !Resolve(module, "TK_Register_Application", &found.registerApplication) ||
      !Resolve(module, "TK_Error_Message", &found.errorMessage) ||
      !Resolve(module, "TK_Library_Release", &found.release)) {
    Log("KESTREL - " + fileName + " lacks a toolkit entry point, toolkit steps skipped",
        kInformation);
    platform::UnloadModule(module);
    return false;
  }
  toolkit = found;
  return true;
}

std::string ToolkitFailure(const char* step, int code) {
  const char* text = toolkit.errorMessage(code);
  // "KESTREL - %s failed: (%d) %s."
  return std::string("KESTREL - ") + step + " failed: (" + std::to_string(code) + ") " +
         (text ? text : "") + ".";
}

// False when the attach must stop before the calling thread's block is made.
bool StartToolkit() {
  if (!LoadToolkit()) return true;
  int result = toolkit.initialise(GiveNoSetting, GiveNoSetting, nullptr);
  if (result != kInitialised && result != kAlreadyInitialised) {
    Notify(ToolkitFailure("TK_Library_Initialization", result));
    return false;
  }
  result = toolkit.registerApplication(&applicationId, kApplicationTitle);
  if (result != kRegistered && result != kAlreadyRegistered) {
    Notify(ToolkitFailure("TK_Register_Application", result));
    return false;
  }
  return true;
}

}  // namespace

// There is no application framework to register with on Linux. Without a slot the rest of start-up
// is skipped, but the library still loads.
void AttachProcess() {
  if (attached) return;
  attached = true;
  if (!platform::CreateThreadSlot(&slot, FreeBlock)) return;
  haveSlot = true;
  if (StartToolkit()) MakeBlock();
}

// Blocks of other threads still running are freed when those threads exit, as long as the slot
// exists; deleting it leaves them to the process's end.
void DetachProcess() {
  if (!attached) return;
  attached = false;
  if (toolkit.module) {
    toolkit.release();
    platform::UnloadModule(toolkit.module);
    toolkit = {};
  }
  applicationId = 0;
  if (!haveSlot) return;
  if (void* block = platform::GetThreadSlotValue(slot)) {
    (void)platform::SetThreadSlotValue(slot, nullptr);
    FreeBlock(block);
  }
  platform::DeleteThreadSlot(slot);
  haveSlot = false;
}

void* ThreadScratchBlock() {
  if (!haveSlot) return nullptr;
  void* block = platform::GetThreadSlotValue(slot);
  return block ? block : MakeBlock();
}

bool HasThreadScratchBlock() { return haveSlot && platform::GetThreadSlotValue(slot) != nullptr; }

int LiveScratchBlocks() { return liveBlocks.load(); }

bool ToolkitLoaded() { return toolkit.module != nullptr; }

int ToolkitApplicationId() { return applicationId; }

}  // namespace KESTREL
