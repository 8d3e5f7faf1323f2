#include "QueryProvider.h"

#include <memory>

#include "kestrel/DICOMObject.h"
#include "kestrel/DIMSEC.h"
#include "kestrel/FindProvider.h"

namespace KESTREL::query_provider {

int Answer(const KESTREL::image_search::Settings& settings, PDU_Service* pdu,
           DICOMCommandObject* request) {
  DICOMDataObject identifier;
  if (!pdu || !CFindRQ::Read(request, pdu, &identifier)) return 0;
  std::unique_ptr<FindMatchSource> source =
      KESTREL::image_search::OpenSearch(settings, &identifier);
  return KESTREL::AnswerFind(pdu, request, *source);
}

int SearchOn(const KESTREL::image_search::Settings& settings, DICOMDataObject* query,
             Array<DICOMDataObject*>* matches) {
  if (!query || !matches) return 0;
  std::unique_ptr<FindMatchSource> source = KESTREL::image_search::OpenSearch(settings, query);
  while (DICOMDataObject* match = source->NextMatch()) matches->Add(match);
  return source->GetFailureStatus() == 0;
}

}  // namespace KESTREL::query_provider
