// The association's data path alone, without files: one thread stores large data sets over
// 127.0.0.1 with StandardStorage::Write, another receives them with StandardStorage::Read and
// drops them. Prints MB/s of data set bytes, to set against the loopback TCP bandwidth.
//
//   net_throughput [MEGABYTES_PER_OBJECT [OBJECTS]]   (default 64 MB, 8 objects)
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <thread>

#include "kestrel/PDU_Service.h"
#include "kestrel/StandardStorage.h"

namespace {

constexpr char kCT[] = "1.2.840.10008.5.1.4.1.1.2";

void PushText(DICOMObject* object, uint16_t group, uint16_t element, std::string text) {
  if (text.size() % 2) text.push_back('\0');
  auto* vr = new VR(group, element, static_cast<uint32_t>(text.size()), true);
  std::memcpy(vr->Data, text.data(), text.size());
  object->Push(vr);
}

DICOMDataObject* NewObject(uint32_t bytes, int index) {
  auto* data = new DICOMDataObject;
  PushText(data, 0x0008, 0x0016, kCT);
  PushText(data, 0x0008, 0x0018, "1.2.3.4." + std::to_string(index));
  auto* pixels = new VR(0x7FE0, 0x0010, bytes, true);
  std::memset(pixels->Data, index, bytes);
  pixels->TypeCode = MakeTypeCode('O', 'W');
  data->Push(pixels);
  return data;
}

}  // namespace

int main(int argc, char** argv) {
  const uint32_t megabytes = argc > 1 ? static_cast<uint32_t>(std::atoi(argv[1])) : 64;
  const int objects = argc > 2 ? std::atoi(argv[2]) : 8;
  const uint32_t bytes = megabytes << 20;

  Socket listener;
  listener.ListenOnFreePort();
  const std::string port = std::to_string(listener.GetLocalPort());
  std::thread acceptor([&] {
    PDU_Service pdu;
    if (!pdu.ServeSocket(listener.AcceptHandle(10000))) return;
    UnknownStorage store;
    for (;;) {
      DICOMCommandObject request;
      if (!pdu.Read(&request)) return;
      DICOMDataObject data;
      if (!store.Read(&pdu, &request, &data)) return;
    }
  });

  PDU_Service pdu;
  pdu.SetApplicationContext("1.2.840.10008.3.1.1.1");
  pdu.AddAbstractSyntax(kCT);
  if (!pdu.Connect("127.0.0.1", port.c_str(), "1.2.840.10008.1.2.1")) {
    std::fprintf(stderr, "no association\n");
    return 1;
  }
  double seconds = 0;
  for (int i = 0; i < objects; ++i) {
    DICOMDataObject* object = NewObject(bytes, i);  // made outside the timed part
    auto start = std::chrono::steady_clock::now();
    uint16_t status = 0xFFFF;
    bool ok = UnknownStorage().Write(&pdu, object, &status) && status == 0;
    seconds += std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    delete object;
    if (!ok) {
      std::fprintf(stderr, "store %d failed\n", i);
      return 1;
    }
  }
  pdu.Close();
  acceptor.join();
  std::printf("%d objects of %u MB in %.2f s: %.0f MB/s\n", objects, megabytes, seconds,
              objects * static_cast<double>(bytes) / seconds / 1e6);
  return 0;
}
