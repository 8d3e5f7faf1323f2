#include "Module.h"

// The dynamic loader runs these when libkestrel.so is loaded into a process and unloaded from
// it: process attach and detach. Threads need no counterpart:
// their scratch blocks are made on first use and freed by the thread slot's destructor.
// Nothing refers to this file, so a program linking the static twin of the library leaves it
// out: the unit tests call AttachProcess and DetachProcess themselves, when they choose.

namespace {

__attribute__((constructor)) void LoadKestrel() { KESTREL::AttachProcess(); }

__attribute__((destructor)) void UnloadKestrel() { KESTREL::DetachProcess(); }

}  // namespace
