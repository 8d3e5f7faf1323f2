#pragma once

// A destination of a stored image: two strings handed to the storage layer, which gives them
// their meaning (CStorage::UpdateDatabase).

#include <string>

#include "kestrel/Export.h"

class KESTREL_API CDestination {
 public:
  // Both strings empty.
  CDestination();
  // The two strings, in argument order.
  CDestination(const std::string& first, const std::string& second);
  CDestination(const CDestination& other);
  CDestination& operator=(const CDestination& other);
  virtual ~CDestination();

  std::string First;
  std::string Second;
};
