#pragma once

// The provider side shared by the patient-root and study-root queries: a C-FIND answered from
// the image database, streamed (Answer) or collected (SearchOn).

#include <string>

#include "ImageSearch.h"
#include "kestrel/Array.h"

class DICOMCommandObject;
class DICOMDataObject;
class PDU_Service;

namespace KESTREL::query_provider {

int Answer(const KESTREL::image_search::Settings& settings, PDU_Service* pdu,
           DICOMCommandObject* request);
int SearchOn(const KESTREL::image_search::Settings& settings, DICOMDataObject* query,
             Array<DICOMDataObject*>* matches);

}  // namespace KESTREL::query_provider
