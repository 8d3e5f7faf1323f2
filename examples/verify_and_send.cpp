// Verifies a DICOM node with C-ECHO, then sends files to it with C-STORE over one association.
// usage: verify_and_send HOST PORT CALLED-AE FILE...
#include <kestrel/kestrel.h>

#include <cstdio>
#include <memory>
#include <string>
#include <vector>

int main(int argc, char** argv) {
  if (argc < 5) {
    std::fprintf(stderr, "usage: %s HOST PORT CALLED-AE FILE...\n", argv[0]);
    return 64;
  }
  const std::string host = argv[1], port = argv[2], calledAE = argv[3];
  KESTREL::KESTREL_STATUS status;
  CVerification echo;
  if (!echo.Client(host, port, "EXAMPLE", calledAE, &status)) {
    // Status 1: no association; 2: associated, but the exchange failed.
    std::fprintf(stderr, "echo: status %d\n%s\n", status, KESTREL::GetLastErrorText().c_str());
    return status;
  }
  // Read every file first, to propose each SOP class in the syntax its file is held in.
  std::vector<std::unique_ptr<CStorage>> images;
  std::vector<UID> classes, syntaxes;
  for (int i = 4; i < argc; ++i) {
    CStandardStorage loader;
    char syntax[65] = {};
    CStorage* image = loader.Load(argv[i], syntax, sizeof syntax - 1);  // caller deletes
    if (!image) {
      std::fprintf(stderr, "%s: not an image this library knows\n", argv[i]);
      continue;
    }
    images.emplace_back(image);
    UID sopClass;  // the instance's own class, which Send names in its request
    sopClass.Set(image->GetIOD()->GetAttribute(0x0008, 0x0016));
    classes.push_back(sopClass);
    syntaxes.emplace_back(syntax);
  }
  // The association is the caller's until ReleaseAssociation.
  PDU_Service* association =
      CStorage::CreateAssociation(host, port, "EXAMPLE", calledAE, classes, syntaxes);
  if (!association) {
    std::fprintf(stderr, "%s\n", KESTREL::GetLastErrorText().c_str());
    return 1;
  }
  int worst = 0;
  for (size_t i = 0; i < images.size(); ++i) {
    // A null data set sends the instance the object holds (and empties it).
    if (images[i]->Send(association, nullptr, syntaxes[i].GetBuffer(), &status)) continue;
    std::fprintf(stderr, "image %zu: %s\n", i + 1, KESTREL::GetLastErrorText().c_str());
    worst = status > worst ? status : worst;
  }
  CStorage::ReleaseAssociation(association);
  std::printf("sent %zu images\n", images.size());
  return worst;
}
