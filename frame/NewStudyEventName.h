#pragma once

#include <string>

namespace KESTREL {

// The shared-memory name of "NewStudyEvent".
constexpr char kNewStudyEventName[] = "/NewStudyEvent";

// The name the event is opened under: kNewStudyEventName unless a test has chosen its own,
// so that test runs never touch the machine's real event. An empty name restores the default.
std::string NewStudyEventName();
void SetNewStudyEventName(const std::string& name);

}  // namespace KESTREL
