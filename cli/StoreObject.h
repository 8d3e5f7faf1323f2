#pragma once

// Saving one object into the image store and indexing it, the way `kestrel serve` does with a
// received object and `kestrel import` with a file: the file under root/Study/Series/SOP.dcm
// and its Patient, Study, Series and Image rows, or nothing at all.

#include <cstdint>
#include <string>

class CDatabase;
class DICOMDataObject;
class DICOMFileWriter;
struct VR;

enum class StoreOutcome {
  kStored,    // the file and its four rows are there
  kRefused,   // not saved: the object cannot be named in the store (a UID missing or invalid)
  kSetAside,  // an image without pixel data, written under root/RejSave instead
  kFailed,    // the file or the rows could not be written; nothing of it is left in the store
};

struct StoreResult {
  StoreOutcome outcome = StoreOutcome::kFailed;
  uint16_t status = 0;  // the C-STORE status that says so (PS3.4 Table B.2-1)
  std::string comment;  // why, in at most 64 characters (an Error Comment, PS3.7 C.4)
  std::string detail;   // the library's last-error text, when it said more
  std::string path;     // the file written, in the store or set aside
};

// Which objects without Pixel Data (7FE0,0010) are set aside rather than stored.
enum class SetAside {
  kImagesWithoutPixels,  // those of the image classes the library knows (a storage node)
  kAllWithoutPixels,     // every one: only images go into the store (import)
};

// Saves and indexes `dataSet` (emptied when it is written), held in `transferSyntax`, under
// `root`, with the rows in `database` (open). A file of the same instance already in the store
// is replaced; when the rows then fail, the new file stays, as the rows from before name it.
StoreResult StoreObject(DICOMDataObject* dataSet, const std::string& transferSyntax,
                        const std::string& root, CDatabase& database, SetAside setAside);
// The same for an object whose file was written as it arrived: `file` (complete, not yet
// committed) is moved into the store, or set aside, and `header`, its data set as decoded
// without its large values, is what is checked and indexed. With `sync` the
// file is on the disk before this returns. The partial file is removed unless it was moved.
StoreResult StoreWrittenFile(DICOMFileWriter& file, DICOMDataObject* header,
                             const std::string& transferSyntax, const std::string& root,
                             CDatabase& database, bool sync);

// The text of a UID element (`vr` may be null): its value without one trailing zero byte or
// its trailing blanks. False when that is not a UID (digits and full stops, PS3.5 9.1): an
// embedded zero byte, a blank or a "/" is refused, never cut off.
bool UIDValue(const VR* vr, std::string* text);

// The Kestrel home's image database ("" when the home cannot be told): made, with its tables,
// the first time; or `connect` when it is given. Opens it into `database`, making the image
// tables that are missing. False with `error` set when it cannot be had.
[[nodiscard]] bool OpenImageIndex(const std::string& connect, CDatabase& database,
                                  std::string* error);
// The connect string OpenImageIndex opened: `connect`, or the home's embedded database.
std::string ImageIndexConnect(const std::string& connect);
// The Kestrel home's image store; "" when there is no home ($KESTREL_HOME and $HOME unset).
std::string DefaultStoreRoot();
