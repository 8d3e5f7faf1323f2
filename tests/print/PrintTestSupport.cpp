#include "tests/print/PrintTestSupport.h"

#include <cstring>

#include "kestrel/DIMSEN.h"
#include "kestrel/PDU_Service.h"
#include "tests/TestValues.h"

namespace print_test {
namespace {

constexpr char kFilmBox[] = "1.2.840.10008.5.1.1.2";
constexpr char kImageBox[] = "1.2.840.10008.5.1.1.4";
constexpr char kPrinter[] = "1.2.840.10008.5.1.1.16";
constexpr char kPrinterInstance[] = "1.2.840.10008.5.1.1.17";

std::string SopClassOf(DICOMCommandObject& command) {
  std::string affected = TextOf(&command, 0x0000, 0x0002);
  return affected.empty() ? TextOf(&command, 0x0000, 0x0003) : affected;
}

// A film box answer: Referenced Image Box Sequence with `boxes` items.
DICOMDataObject* FilmBoxAnswer(int boxes, int film) {
  auto* answer = new DICOMDataObject;
  auto* sequence = new VR(0x2010, 0x0510, 0, false);
  sequence->TypeCode = MakeTypeCode('S', 'Q');
  answer->Push(sequence);
  for (int i = 0; i < boxes; ++i) {
    auto* item = new DICOMDataObject;
    PushText(item, 0x0008, 0x1150, kImageBox);
    PushText(item, 0x0008, 0x1155, "1.2.3.9." + std::to_string(film) + "." + std::to_string(i + 1));
    answer->PushItem(item);
  }
  return answer;
}

}  // namespace

void PushText(DICOMObject* object, uint16_t group, uint16_t element, std::string text) {
  bool uid = (group == 0x0008 && element >= 0x1150) || group == 0x0002;
  if (text.size() % 2) text.push_back(uid ? '\0' : ' ');
  auto* vr = new VR(group, element, static_cast<uint32_t>(text.size()), true);
  if (!text.empty()) std::memcpy(vr->Data, text.data(), text.size());
  object->Push(vr);
}

std::unique_ptr<DICOMDataObject> MakeImage(const StoredImage& stored) {
  auto image = std::make_unique<DICOMDataObject>();
  auto pushUS = [&](uint16_t element, uint16_t value) {
    auto* vr = new VR(0x0028, element, 2, true);
    std::memcpy(vr->Data, &value, 2);
    image->Push(vr);
  };
  pushUS(0x0002, stored.samples);
  pushUS(0x0010, stored.rows);
  pushUS(0x0011, stored.columns);
  pushUS(0x0100, stored.bitsAllocated);
  pushUS(0x0101, stored.bitsStored);
  pushUS(0x0102, stored.bitsStored - 1);
  pushUS(0x0103, stored.pixelRepresentation);
  const std::pair<uint32_t, std::string> texts[] = {
      {0x00280004, stored.photometric}, {0x00280008, stored.frames},    {0x00281050, stored.center},
      {0x00281051, stored.width},       {0x00281052, stored.intercept}, {0x00281053, stored.slope},
      {0x00020010, stored.syntax},
  };
  for (const auto& [tag, text] : texts) {
    if (!text.empty()) PushText(image.get(), tag >> 16, tag & 0xFFFF, text);
  }
  const uint32_t width = stored.bitsAllocated / 8;
  auto* pixels = new VR(0x7FE0, 0x0010, static_cast<uint32_t>(stored.values.size() * width), true);
  for (size_t i = 0; i < stored.values.size(); ++i) {
    uint32_t value = static_cast<uint32_t>(stored.values[i]);
    std::memcpy(static_cast<char*>(pixels->Data) + i * width, &value, width);
  }
  image->Push(pixels);
  return image;
}

DICOMDataObject* FirstItem(DICOMObject* object, uint32_t sequence) {
  VR* vr = object ? object->Find(sequence >> 16, sequence & 0xFFFF) : nullptr;
  if (!vr || !vr->SequenceItems || vr->SequenceItems->GetSize() == 0) return nullptr;
  return vr->SequenceItems->Get(0);
}

ScriptedPrinter::ScriptedPrinter(const std::string& config) : config_(config) {
  thread_ = std::make_unique<net_test::PeerThread>([this] {
    while (!stop_) {
      int handle = listener_.Accept(100);
      if (handle < 0) continue;
      PDU_Service acceptor(config_.path().c_str());
      acceptor.SetTimeout(10);
      if (acceptor.ServeSocket(handle)) Serve(acceptor);
    }
  });
}

ScriptedPrinter::~ScriptedPrinter() { Stop(); }

std::vector<Seen> ScriptedPrinter::Stop() {
  stop_ = true;
  thread_.reset();
  std::lock_guard<std::mutex> lock(mutex_);
  return seen_;
}

void ScriptedPrinter::Serve(PDU_Service& pdu) {
  for (;;) {
    DICOMCommandObject request;
    if (!pdu.Read(&request)) return;
    Seen seen;
    seen.commandField = request.GetUInt16(0x0000, 0x0100);
    const PresentationContext* context =
        pdu.FindAcceptedContext(pdu.GetLastPresentationContextID());
    seen.abstractSyntax = context ? context->AbstractSyntax.ToString() : "";
    seen.sopClass = SopClassOf(request);
    seen.namedInstance = request.Find(0x0000, 0x1000) || request.Find(0x0000, 0x1001);
    seen.dataSet = std::make_shared<DICOMDataObject>();
    if (request.GetUInt16(0x0000, 0x0800) != 0x0101 && !pdu.Read(seen.dataSet.get())) return;
    {
      std::lock_guard<std::mutex> lock(mutex_);
      seen_.push_back(seen);
    }
    if (seen.commandField == abortOn) {
      pdu.Abort();
      return;
    }
    auto status = statuses.find({seen.commandField, seen.sopClass});
    if (!Answer(pdu, request, status == statuses.end() ? 0 : status->second)) return;
  }
}

bool ScriptedPrinter::Answer(PDU_Service& pdu, DICOMCommandObject& request, uint16_t status) {
  if (sendEvents) {
    DICOMCommandObject answer;
    if (!NEventReportRQ::Write(&pdu, pdu.GetAcceptedContexts()[0].AbstractSyntax, kPrinter,
                               kPrinterInstance, 2, nullptr) ||
        !pdu.Read(&answer) || !NEventReportRSP::Read(&answer))
      return false;
    ++eventAnswers;
  }
  switch (request.GetUInt16(0x0000, 0x0100)) {
    case NGetRQ::kCommandField: {
      DICOMDataObject attributes;
      for (const auto& [tag, text] : printerAttributes)
        PushText(&attributes, tag >> 16, tag & 0xFFFF, text);
      return NGetRSP::Write(&pdu, &request, status,
                            printerAttributes.empty() ? nullptr : &attributes);
    }
    case NCreateRQ::kCommandField: {
      std::string instance = "1.2.3.8." + std::to_string(++created_);
      std::unique_ptr<DICOMDataObject> answer;
      if (SopClassOf(request) == kFilmBox) answer.reset(FilmBoxAnswer(imageBoxes, created_));
      return NCreateRSP::Write(&pdu, &request, status, status >= 0xC000 ? "" : instance,
                               answer.get());
    }
    case NSetRQ::kCommandField:
      return NSetRSP::Write(&pdu, &request, status);
    case NActionRQ::kCommandField:
      return NActionRSP::Write(&pdu, &request, status);
    case NDeleteRQ::kCommandField:
      return NDeleteRSP::Write(&pdu, &request, status);
  }
  return false;
}

}  // namespace print_test
