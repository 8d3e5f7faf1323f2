// The modality vocabularies of the RIS order table (department names) and of DICOM (PS3.3
// C.7.3.1.1.1 modality codes), translated by two ordered tables. The tables are not inverse:
// "DX" leaves as "General Radiography" and comes back as "CR"; "GI/GU" comes in as "RF" and
// "RF" leaves as "Interventional". The second "RF" row of the first table can never match (the
// first "RF" row is met before it); it is kept so the table reads as the RIS maintains it.
#include <string>

#include "kestrel/CModalityWorklistQuery.h"

namespace {

struct ModalityPair {
  const char* from;
  const char* to;
};

constexpr ModalityPair kDICOMToRIS[] = {
    {"MG", "Breast Imaging"},
    {"CR", "General Radiography"},
    {"DX", "General Radiography"},
    {"NM", "Nuclear Medicine"},
    {"RF", "Interventional"},
    {"XA", "Angiography"},
    {"US", "Ultrasound"},
    {"RF", "GI/GU"},
    {"MR", "MRI"},
};

constexpr ModalityPair kRISToDICOM[] = {
    {"Breast Imaging", "MG"},
    {"General Radiography", "CR"},
    {"Nuclear Medicine", "NM"},
    {"Interventional", "RF"},
    {"Angiography", "XA"},
    {"Ultrasound", "US"},
    {"GI/GU", "RF"},
    {"MRI", "MR"},
};

// The first row whose input equals `in` exactly (bytes, so case-sensitive and safe for any
// multibyte text) gives the output; no row leaves the input as it is.
template <size_t N>
void Translate(const ModalityPair (&table)[N], std::string& out, const std::string& in) {
  for (const ModalityPair& row : table) {
    if (in == row.from) {
      out = row.to;
      return;
    }
  }
  out = in;
}

}  // namespace

void CModalityWorklistQuery::ConvertDICOM2RISModality(std::string& risModality,
                                                      const std::string& dicomModality) {
  Translate(kDICOMToRIS, risModality, dicomModality);
}

void CModalityWorklistQuery::ConvertRIS2DICOMModality(std::string& dicomModality,
                                                      const std::string& risModality) {
  Translate(kRISToDICOM, dicomModality, risModality);
}
