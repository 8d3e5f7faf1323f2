#pragma once

// The answers to a patient-root or study-root C-FIND identifier from the image database (the
// Patient, Study, Series and Image tables): the provider side of CPatientRootQuery and
// CStudyRootQuery.
//
// The selection is made twice, as for the worklist: the SQL narrows the rows by what every
// database compares alike (a superset of the matches), and every key is then matched against
// the row's value by the rules of PS3.4 C.2.2.2 (KeyMatching.h), so that wild cards, case and
// ranges behave alike on SQLite and PostgreSQL. Rows are read one at a time.

#include <memory>
#include <string>

#include "QueryLayouts.h"
#include "kestrel/FindProvider.h"

class CDatabase;
class DICOMDataObject;

namespace KESTREL::image_search {

struct Settings {
  KESTREL::query_layouts::Root root = KESTREL::query_layouts::Root::kStudy;
  CDatabase* database = nullptr;  // not deleted; null: a connection of the record set's own
  std::string operation;          // "CStudyRootQuery::SearchOn()", for the failure text
  std::string retrieveAE;         // answers Retrieve AE Title (0008,0054) when asked
};

// The matches of `identifier` (emptied by reading its keys). Never null: a level the model
// has not gives no match and status A900, a database failure no match and C000 with the
// last-error text "KESTREL.dll : <operation> : <driver text>".
std::unique_ptr<FindMatchSource> OpenSearch(const Settings& settings, DICOMDataObject* identifier);

}  // namespace KESTREL::image_search
