// Streams over memory and over a file do what their comments tell, also with the numbers that they
// fail for. The system allows the file a length that is soon reached.

#include <signal.h>
#include <sys/resource.h>

#include <cstring>
#include <memory>

#include "QuillmereLib/streams/CUMemoryStream.h"
#include "fuzz/Input.h"
#include "fuzz/StreamModel.h"
#include "tests/support/Files.h"
#include "tests/support/Strings.h"
#include "tests/support/TemporaryFolder.h"

namespace {

// A file whose name stays, under a limit that the process gets with the first one.
std::string const& FilePath() {
  static TemporaryFolder const folder;
  static std::string const path = [] {
    signal(SIGXFSZ, SIG_IGN);
    rlimit const limit = {kLongestFile, kLongestFile};
    Require(setrlimit(RLIMIT_FSIZE, &limit) == 0);
    return folder.Path() + "/file";
  }();
  return path;
}

// A stream beside its model. `file` is null for a stream in memory, whose position stays 0.
struct Trial {
  StreamModel model;
  CUSharedPtr<CUStream> stream;
  CUFileStream* file = nullptr;

  void OpenMemory(std::string bytes) {
    stream = new CUMemoryStream(bytes.data(), bytes.size(), false);
    model.length = bytes.size();
    model.range = {0, model.length};
    model.canRead = !bytes.empty();
    model.bytes = std::move(bytes);
  }

  void OpenFile(unsigned int mode, unsigned int access) {
    stream = nullptr;
    stream = file = new CUFileStream(Make(FilePath()).Get(), static_cast<CUStream_FileMode>(mode),
                                     static_cast<CUStream_FileAccess>(access), true);
    model.Open(mode, access);
  }

  // What a reading is to give, and moves the position by.
  std::string Expected(std::uint64_t size, long long offset, CUStream_Seek_Origin origin) {
    _CURange const range = model.ReadRange(size, offset, origin);
    _CURange const told = stream->CalcReadRange(size, offset, origin);
    Require(told.location == range.location && told.length == range.length);
    if (!model.canRead || range.length == 0) return "";
    if (file != nullptr) model.position = range.location + range.length;
    return model.bytes.substr(range.location, range.length);
  }

  void Read(std::uint64_t size, long long offset, CUStream_Seek_Origin origin) {
    std::string const expected = Expected(size, offset, origin);
    // One byte more would not fit.
    std::unique_ptr<unsigned char[]> const buffer(new unsigned char[expected.size()]);
    Require(stream->Read(buffer.get(), size, offset, origin) == expected.size());
    Require(std::memcmp(buffer.get(), expected.data(), expected.size()) == 0);
  }

  void Slice(_CURange range) {
    std::string const expected =
        Expected(range.length, static_cast<long long>(range.location), CUStream_Seek_Origin_Begin);
    CUSharedPtr<CUMemoryStream> const slice = CUMemoryStream::CreateMemoryStreamPtr(stream, range);
    Require((slice != nullptr) == (range.length != 0 && expected.size() == range.length));
    if (slice == nullptr) return;
    Require(slice->Length() == range.length);
    Require(std::memcmp(slice->GetPtr(), expected.data(), expected.size()) == 0);
  }

  // What only a file stream offers.
  void ChangeFile(int operation, std::uint64_t size, long long offset,
                  CUStream_Seek_Origin origin) {
    if (operation == 0) {
      std::string text(size % 4096, static_cast<char>(size));
      bool const written = model.Write(text, offset, origin);
      auto* const buffer = reinterpret_cast<unsigned char*>(text.data());
      Require(file->Write(buffer, text.size(), offset, origin) == (written ? text.size() : 0));
    } else if (operation == 1) {
      if (model.IsOpen()) model.position = model.Place(offset, origin);
      Require(file->Seek(offset, origin) == static_cast<long long>(model.position));
    } else if (operation == 2) {
      file->SetLength(size);
      model.SetLength(size);
    } else if (operation == 3) {
      OpenFile(size % 6, origin % 3);
    } else {
      file->Close();
      model.Close();
    }
  }

  void Step(Input& input) {
    int const operation = input.TakeByte() % 9;
    auto const origin = static_cast<CUStream_Seek_Origin>(input.TakeByte() % 4);
    std::uint64_t const location = input.TakeNumber();
    std::uint64_t const size = input.TakeNumber();
    auto const offset = static_cast<long long>(location);
    if (operation == 0) {
      Read(size, offset, origin);
    } else if (operation == 1) {
      Slice({location, size % (2 * kLongestFile)});
    } else if (operation == 2) {
      bool const isSet = stream->SetReadaleRange({location, size}) == CUResult_Success;
      Require(isSet == model.SetRange({location, size}));
    } else if (operation == 3) {
      stream->ResetReadaleRange();
      model.SetRange({0, model.length});
    } else if (file != nullptr) {
      ChangeFile(operation - 4, size, offset, origin);
    }
    Require(stream->Length() == model.length);
    Require(stream->CanRead() == model.canRead && stream->CanWrite() == model.canWrite);
    Require(file == nullptr || file->Position() == model.position);
  }
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* bytes, std::size_t size) {
  Input input(bytes, size);
  Trial trial;
  if (input.TakeByte() % 4 == 0) {
    trial.OpenMemory(input.TakeText(input.TakeByte()));
  } else {
    trial.OpenFile(CUStream_FileMode_Create, CUStream_FileAccess_ReadWrite);
  }
  for (int steps = 0; steps < 100 && !input.IsEmpty(); ++steps) trial.Step(input);
  if (trial.file != nullptr) Require(ReadFile(FilePath()) == trial.model.bytes);
  return 0;
}
