#pragma once

// What the library does when it is loaded into a process and unloaded from it, and the
// per-thread scratch block. ModuleEntry_posix.cpp calls AttachProcess from the load-time
// constructor and DetachProcess from the unload-time destructor; tests call them directly.

#include <string>

namespace KESTREL {

constexpr int kScratchBlockSize = 256;
constexpr char kApplicationTitle[] = "KESTREL";
constexpr char kToolkitFileName[] = "libtkadv.so";
constexpr char kToolkitVariable[] = "KESTREL_TKADV";  // overrides kToolkitFileName

// Takes the thread slot, starts the toolkit when it is installed and gives the calling thread
// its scratch block. A toolkit failure is reported through the notifier; the library still
// loads. Calling it again without DetachProcess in between does nothing.
void AttachProcess();
// Releases the toolkit, the calling thread's block and the slot.
void DetachProcess();

// The calling thread's 256-byte block, zero-filled when made, made on first use and freed when
// the thread exits. Null when the process has no slot.
[[nodiscard]] void* ThreadScratchBlock();

// For tests: whether the calling thread has its block yet, how many blocks exist, and what the
// toolkit said.
[[nodiscard]] bool HasThreadScratchBlock();
int LiveScratchBlocks();
[[nodiscard]] bool ToolkitLoaded();
int ToolkitApplicationId();

}  // namespace KESTREL
