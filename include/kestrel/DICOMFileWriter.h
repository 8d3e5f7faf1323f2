#pragma once

// One DICOM file written from a data set that arrives as encoded bytes, the way a C-STORE's
// data set comes off the network: the preamble, "DICM" and a file meta group first, then the
// data set's bytes as they come, so that no value of it is ever held whole in memory.
//
// The file is made under a name of its own ("<n>.partial" in a directory the caller gives),
// holds an advisory lock while it is written, and gets its real name only from Commit. A writer
// that goes away without a Commit, or whose Commit fails, removes it; one whose process dies
// leaves it unlocked, which is how RemoveStale tells it from a file still being written.
//
// Nothing here throws or writes messages: failures are false results, with the system's error
// code kept. One writer belongs to one thread.

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include "kestrel/ByteBuffer.h"
#include "kestrel/Export.h"

class DICOMCodec;

class KESTREL_API DICOMFileWriter : public ByteBuffer::Sink {
 public:
  DICOMFileWriter();
  // Removes the partial file when there is one still (no Commit, or a failed one).
  ~DICOMFileWriter() override;
  DICOMFileWriter(const DICOMFileWriter&) = delete;
  DICOMFileWriter& operator=(const DICOMFileWriter&) = delete;

  // Makes a new partial file in `directory` (which must exist) and writes the preamble, "DICM"
  // and the file meta group that `codec` makes for the SOP class, instance and transfer syntax
  // given: its implementation class and version, and its local AE title as the source AE
  // (DICOMCodec::AddFileMeta, as SaveFile writes them). False when the file cannot be made or
  // written; GetError() then says why.
  bool Open(const std::string& directory, DICOMCodec& codec, const std::string& sopClass,
            const std::string& sopInstance, const std::string& transferSyntax);
  // For a file that Commit is to flush: from now on its bytes are handed to the disk as they
  // come, each 256 KiB, so that the flush finds little left to wait for. Without it they stay
  // with the system until it writes them on its own.
  void WriteBehind(bool on);
  // Appends data set bytes. After the first failure nothing more is written and every call
  // gives false.
  bool Write(const void* data, size_t length) override;
  // Hands what is buffered to the file, so that a reader of GetPath() sees every byte given.
  bool Flush();
  // Moves the file to `target`, replacing a file of that name, after making the directories
  // of `target` that are missing. With `sync` the file's bytes, each directory made and the
  // directory of `target` reach the disk before it returns: the file then survives a power
  // loss. False, with the partial file removed and GetError() set, when a step failed.
  bool Commit(const std::string& target, bool sync);
  // Closes and removes the partial file.
  void Discard();

  // The partial file ("" when none is open).
  const std::string& GetPath() const;
  // Data set bytes written so far.
  uint64_t GetDataSetBytes() const;
  bool Failed() const;
  // The system's error code of the first failure (errno), 0 when none.
  int GetError() const;

  // Removes the partial files of `directory` that no writer holds: those of a process that
  // died while writing. The number removed (0 when the directory cannot be read).
  static int RemoveStale(const std::string& directory);

 private:
  struct State;
  std::unique_ptr<State> state_;

  bool Fail(int error);
  bool WriteHead(DICOMCodec& codec, const std::string& sopClass, const std::string& sopInstance,
                 const std::string& transferSyntax);
};
