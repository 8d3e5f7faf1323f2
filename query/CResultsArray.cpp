#include "kestrel/CResultsArray.h"

CResult::CResult() = default;

CResult::~CResult() { DeleteAll(); }

void CResult::DeleteAll() {
  for (int i = 0; i < GetSize(); ++i) delete GetAt(i);
  RemoveAll();
}

CResultsArray::CResultsArray() = default;

// The rows are the owner's to free with DeleteAll before this: they are left alone here.
CResultsArray::~CResultsArray() = default;

void CResultsArray::DeleteAll() {
  for (int i = 0; i < GetSize(); ++i) {
    CResult* row = GetAt(i);
    if (!row) continue;
    row->DeleteAll();
    delete row;
  }
  RemoveAll();
}
