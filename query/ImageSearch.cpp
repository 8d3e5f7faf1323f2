#include "ImageSearch.h"

#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>
#include <string>
#include <vector>

#include "ColumnRecordset.h"
#include "Elements.h"
#include "ImageKeys.h"
#include "kestrel/CDBException.h"
#include "kestrel/CDatabase.h"
#include "kestrel/DICOMObject.h"
#include "kestrel/DIMSEC.h"
#include "kestrel/Status.h"

namespace el = KESTREL::query_elements;
namespace keys = KESTREL::image_keys;

namespace KESTREL::image_search {

namespace {

using KESTREL::query_layouts::Level;
using KESTREL::query_layouts::Root;

constexpr char kImageDatabase[] = "ODBC;DSN=DICOMServer;UID=admin";

bool IsASCII(const std::string& text) {
  for (unsigned char c : text)
    if (c >= 0x80) return false;
  return true;
}

// US values are held as binary numbers; the database holds them in decimal, "\"-separated.
VR* NewUnsigned(uint16_t group, uint16_t element, const std::string& text) {
  std::vector<uint16_t> numbers;
  for (size_t start = 0; start <= text.size();) {
    size_t end = text.find('\\', start);
    if (end == std::string::npos) end = text.size();
    numbers.push_back(static_cast<uint16_t>(std::strtoul(text.c_str() + start, nullptr, 10)));
    start = end + 1;
  }
  const uint32_t length = static_cast<uint32_t>(numbers.size() * sizeof(uint16_t));
  auto* vr = new (std::nothrow) VR(group, element, length, true);
  if (!vr) return nullptr;
  if (!vr->Data) {
    delete vr;
    return nullptr;
  }
  std::memcpy(vr->Data, numbers.data(), length);
  vr->TypeCode = el::TypeCodeOf("US");
  return vr;
}

class ImageMatches : public FindMatchSource {
 public:
  ImageMatches(const Settings& settings, DICOMDataObject* identifier)
      : settings_(settings), request_(keys::ReadRequest(identifier)) {}

  void Open() {
    const bool studyRoot = settings_.root == Root::kStudy;
    if (request_.level == Level::kNone || (studyRoot && request_.level == Level::kPatient)) {
      failure_ = DIMSEStatus::kIdentifierDoesNotMatch;
      return;
    }
    try {
      CDatabase* database = Database();
      const bool postgres = database->GetDBMSName() == "PostgreSQL";
      keys::Statement statement = keys::BuildStatement(request_, postgres);
      rows_ =
          std::make_unique<KESTREL::query_records::ColumnRecordset>(database, statement.columns);
      rows_->Filter = statement.filter;
      rows_->Open(CRecordset::kUseDefaultType, statement.sql.c_str());
    } catch (const CDBException& e) {
      Fail(e);
    }
  }

  DICOMDataObject* NextMatch() override {
    if (failure_ || !rows_) return nullptr;
    try {
      while (!rows_->IsEOF()) {
        std::unique_ptr<DICOMDataObject> answer;
        if (RowMatches()) {
          answer.reset(BuildAnswer());
          if (!answer) failure_ = DIMSEStatus::kOutOfResources;
        }
        rows_->MoveNext();
        if (answer || failure_) return answer.release();
      }
    } catch (const CDBException& e) {
      Fail(e);
    }
    return nullptr;
  }

  uint16_t GetFailureStatus() override { return failure_; }

 private:
  // The caller's open connection, or one of this search's own to the image database.
  CDatabase* Database() {
    if (settings_.database && settings_.database->IsOpen()) return settings_.database;
    own_ = std::make_unique<CDatabase>();
    own_->Open(settings_.database && !settings_.database->GetConnect().empty()
                   ? settings_.database->GetConnect()
                   : std::string(kImageDatabase));
    return own_.get();
  }

  void Fail(const CDBException& e) {
    failure_ = DIMSEStatus::kUnableToProcess;
    KESTREL::SetLastErrorText("KESTREL.dll : " + settings_.operation + " : " + e.GetErrorMessage());
  }

  bool RowMatches() const {
    for (const keys::Key& key : request_.keys) {
      const std::string* value = key.column >= 0 ? rows_->Value(key.column) : nullptr;
      if (!keys::KeyMatches(key, value)) return false;
    }
    return true;
  }

  // The value a key is answered with: the row's, or what this node says of itself.
  std::string ValueOf(const keys::Key& key) const {
    if (key.column >= 0) {
      const std::string* value = rows_->Value(key.column);
      return value ? keys::AnswerText(*value) : std::string();
    }
    if (key.group == 0x0008 && key.element == 0x0054) return settings_.retrieveAE;
    if (key.group == 0x0008 && key.element == 0x0056) return "ONLINE";
    return std::string();
  }

  VR* NewElement(const keys::Key& key, const std::string& value) const {
    const char* vr = key.attribute ? key.attribute->vr : "UN";
    if (!value.empty() && vr[0] == 'U' && vr[1] == 'S')
      return NewUnsigned(key.group, key.element, value);
    VR* element = el::NewText(key.group, key.element, value, vr);
    if (element && !key.attribute)
      element->TypeCode = key.sequence ? el::TypeCodeOf("SQ") : key.typeCode;
    return element;
  }

  // Exactly the keys asked (PS3.4 C.4.1.1.3.2), with the level; those the database does not
  // hold come back empty.
  DICOMDataObject* BuildAnswer() const {
    auto answer = std::make_unique<DICOMDataObject>();
    bool ascii = true;
    for (const keys::Key& key : request_.keys) {
      const std::string value = ValueOf(key);
      ascii = ascii && IsASCII(value);
      std::unique_ptr<VR> element(NewElement(key, value));
      if (!element || !answer->Push(element.get())) return nullptr;
      element.release();
    }
    if (!el::PushText(answer.get(), 0x0008, 0x0052,
                      KESTREL::query_layouts::LevelKeyword(request_.level), "CS"))
      return nullptr;
    // The database holds UTF-8 (ISO_IR 192, PS3.3 C.12.1.1.2); plain ASCII needs no term.
    if ((!ascii || request_.askedCharacterSet) &&
        !el::PushText(answer.get(), 0x0008, 0x0005, ascii ? "" : "ISO_IR 192", "CS"))
      return nullptr;
    return answer.release();
  }

  Settings settings_;
  keys::Request request_;
  std::unique_ptr<CDatabase> own_;
  std::unique_ptr<KESTREL::query_records::ColumnRecordset> rows_;
  uint16_t failure_ = 0;
};

}  // namespace

std::unique_ptr<FindMatchSource> OpenSearch(const Settings& settings, DICOMDataObject* identifier) {
  auto matches = std::make_unique<ImageMatches>(settings, identifier);
  matches->Open();
  return matches;
}

}  // namespace KESTREL::image_search
