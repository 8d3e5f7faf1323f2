#pragma once

// The requester side shared by the patient-root and study-root queries: the keys of the next
// query, the identifier asked at a level, and each answer made into a row of its level's
// layout.

#include <cstdint>
#include <map>
#include <string>
#include <utility>

#include "QueryLayouts.h"
#include "kestrel/Status.h"

class CResultsArray;
class DICOMDataObject;
class StandardQuery;

namespace KESTREL::query_request {

class Requester {
 public:
  Requester(KESTREL::query_layouts::Root root, CResultsArray* results)
      : root_(root), results_(results) {}

  // 0 for a group 0000 or 0002 tag, the level (0008,0052) or a value over 1024 characters.
  int SetKey(uint16_t group, uint16_t element, const std::string& value);
  void ClearKeys() { keys_.clear(); }
  // One association, one C-FIND at `level` through `query` (whose CallBack calls AddRow), a
  // release; statuses and texts as the query classes' headers say.
  int Query(StandardQuery& query, const std::string& level, const std::string& host,
            const std::string& port, const std::string& callingAE, const std::string& calledAE,
            KESTREL::KESTREL_STATUS* status);
  // The answer as a row of the layout of the level last asked.
  void AddRow(DICOMDataObject* match);

  static int ResultSize(KESTREL::query_layouts::Root root, const std::string& level);
  static const char* ResultName(KESTREL::query_layouts::Root root, const std::string& level,
                                int slot, uint16_t* group, uint16_t* element);

 private:
  [[nodiscard]] bool BuildIdentifier(KESTREL::query_layouts::Level level,
                                     DICOMDataObject* identifier);

  KESTREL::query_layouts::Root root_;
  CResultsArray* results_;
  std::map<std::pair<uint16_t, uint16_t>, std::string> keys_;
  KESTREL::query_layouts::Level level_ = KESTREL::query_layouts::Level::kNone;
};

}  // namespace KESTREL::query_request
