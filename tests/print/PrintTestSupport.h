#pragma once

// For the print tests: a printer of our own (an acceptor on a thread, on a free loopback port,
// that answers the DIMSE-N requests of any number of associations with the statuses a test
// chooses, and records what it was sent), and stored images made to order.

#include <atomic>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "kestrel/DICOMObject.h"
#include "tests/net/NetTestSupport.h"

namespace print_test {

// One request as the printer saw it.
struct Seen {
  uint16_t commandField = 0;
  std::string abstractSyntax;  // of the presentation context it came on
  std::string sopClass;        // affected or requested
  bool namedInstance = false;  // (0000,1000) or (0000,1001) present
  std::shared_ptr<DICOMDataObject> dataSet;
};

class ScriptedPrinter {
 public:
  // `config`: the acceptor's association configuration ("" accepts everything). The script
  // below must be set before a client connects.
  explicit ScriptedPrinter(const std::string& config = "");
  ~ScriptedPrinter();

  std::string Port() const { return listener_.PortText(); }
  // Waits for the thread and gives what every association sent.
  std::vector<Seen> Stop();

  // The status answered to requests of a command field for a SOP class (success when not
  // given).
  std::map<std::pair<uint16_t, std::string>, uint16_t> statuses;
  // A request of this command field is answered with A-ABORT.
  uint16_t abortOn = 0;
  // The image boxes named in a film box's N-CREATE answer.
  int imageBoxes = 1;
  // The N-GET answer's data set: (group, element, text) rows.
  std::vector<std::pair<uint32_t, std::string>> printerAttributes;
  // An N-EVENT-REPORT (printer, event type 2) goes out before every response.
  bool sendEvents = false;
  // How many N-EVENT-REPORT responses came back.
  std::atomic<int> eventAnswers{0};

 private:
  void Serve(PDU_Service& pdu);
  bool Answer(PDU_Service& pdu, DICOMCommandObject& request, uint16_t status);

  net_test::Listener listener_;
  net_test::TempFile config_;
  std::atomic<bool> stop_{false};
  std::mutex mutex_;
  std::vector<Seen> seen_;
  int created_ = 0;
  std::unique_ptr<net_test::PeerThread> thread_;
};

// A single-frame-or-more grayscale image data set with the values given, pixel by pixel and
// frame after frame, in the layout the fields say. Empty texts are left out.
struct StoredImage {
  uint16_t rows = 2;
  uint16_t columns = 2;
  uint16_t bitsAllocated = 16;
  uint16_t bitsStored = 12;
  uint16_t pixelRepresentation = 0;
  uint16_t samples = 1;
  std::string photometric = "MONOCHROME2";
  std::string frames;     // Number of Frames
  std::string center;     // Window Center
  std::string width;      // Window Width
  std::string slope;      // Rescale Slope
  std::string intercept;  // Rescale Intercept
  std::string syntax;     // (0002,0010)
  std::vector<int> values;
};
std::unique_ptr<DICOMDataObject> MakeImage(const StoredImage& stored);

// Pushes a text element, padded to even length (UIs with a zero byte).
void PushText(DICOMObject* object, uint16_t group, uint16_t element, std::string text);
// The first item of the sequence `sequence` (group << 16 | element) of `object`, or null.
DICOMDataObject* FirstItem(DICOMObject* object, uint32_t sequence);

}  // namespace print_test
