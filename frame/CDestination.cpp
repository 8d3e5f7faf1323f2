#include "kestrel/CDestination.h"

CDestination::CDestination() = default;
CDestination::CDestination(const std::string& first, const std::string& second)
    : First(first), Second(second) {}
CDestination::CDestination(const CDestination& other) = default;
CDestination& CDestination::operator=(const CDestination& other) = default;
CDestination::~CDestination() = default;
