// Streams beside their peers, on a file of 64 MiB in the temporary folder that stays in the page
// cache. No peer buffers, but for Poco's stream, which is made so.

#include <Poco/FileStream.h>
#include <Poco/MemoryStream.h>
#include <fcntl.h>
#include <unistd.h>

#include <QBuffer>
#include <QFile>
#include <cstring>
#include <memory>

#include "QuillmereLib/streams/CUFileStream.h"
#include "QuillmereLib/streams/CUMemoryStream.h"
#include "benchmarks/Cases.h"
#include "benchmarks/TemporaryFiles.h"

namespace {

constexpr std::size_t kFileSize = std::size_t{64} << 20;
constexpr std::size_t kGrownSize = std::size_t{8} << 20;

// Files of each library behind one face: opened on `path`, transferring at a position.

struct OurFile {
  std::unique_ptr<CUFileStream> stream;
  explicit OurFile(std::string const& path, bool create = false) {
    CUStringMac text = Ours(path);
    stream = std::make_unique<CUFileStream>(
        &text, create ? CUStream_FileMode_Create : CUStream_FileMode_Open,
        CUStream_FileAccess_ReadWrite, false);
  }
  std::size_t Read(unsigned char* buffer, std::size_t size, std::size_t position) {
    return stream->Read(buffer, size, static_cast<long long>(position), CUStream_Seek_Origin_Begin);
  }
  std::size_t Write(unsigned char* buffer, std::size_t size, std::size_t position) {
    return stream->Write(buffer, size, static_cast<long long>(position),
                         CUStream_Seek_Origin_Begin);
  }
};

struct PlainFile {
  Descriptor file;
  explicit PlainFile(std::string const& path, bool create = false)
      : file(path, create ? O_RDWR | O_CREAT | O_TRUNC : O_RDWR) {}
  std::size_t Read(unsigned char* buffer, std::size_t size, std::size_t position) {
    return static_cast<std::size_t>(pread(file.Get(), buffer, size, static_cast<off_t>(position)));
  }
  std::size_t Write(unsigned char* buffer, std::size_t size, std::size_t position) {
    return static_cast<std::size_t>(pwrite(file.Get(), buffer, size, static_cast<off_t>(position)));
  }
};

// Grows the file before it writes behind its end, as a stream of this library does.
struct GrowingPlainFile : PlainFile {
  using PlainFile::PlainFile;
  std::size_t Write(unsigned char* buffer, std::size_t size, std::size_t position) {
    if (ftruncate(file.Get(), static_cast<off_t>(position + size)) != 0) return 0;
    return PlainFile::Write(buffer, size, position);
  }
};

struct QtFile {
  QFile file;
  explicit QtFile(std::string const& path, bool create = false)
      : file(QString::fromStdString(path)) {
    QIODevice::OpenMode mode = QIODevice::ReadWrite | QIODevice::Unbuffered;
    if (create) mode |= QIODevice::Truncate;
    if (!file.open(mode)) std::abort();
  }
  std::size_t Read(unsigned char* buffer, std::size_t size, std::size_t position) {
    file.seek(static_cast<qint64>(position));
    return static_cast<std::size_t>(
        file.read(reinterpret_cast<char*>(buffer), static_cast<qint64>(size)));
  }
  std::size_t Write(unsigned char* buffer, std::size_t size, std::size_t position) {
    file.seek(static_cast<qint64>(position));
    return static_cast<std::size_t>(
        file.write(reinterpret_cast<char*>(buffer), static_cast<qint64>(size)));
  }
};

struct PocoFile {
  Poco::FileStream file;
  explicit PocoFile(std::string const& path, bool create = false)
      : file(path, create ? std::ios::in | std::ios::out | std::ios::trunc
                          : std::ios::in | std::ios::out) {}
  std::size_t Read(unsigned char* buffer, std::size_t size, std::size_t position) {
    file.seekg(static_cast<std::streamoff>(position));
    file.read(reinterpret_cast<char*>(buffer), static_cast<std::streamsize>(size));
    return static_cast<std::size_t>(file.gcount());
  }
  std::size_t Write(unsigned char* buffer, std::size_t size, std::size_t position) {
    file.seekp(static_cast<std::streamoff>(position));
    file.write(reinterpret_cast<char*>(buffer), static_cast<std::streamsize>(size));
    file.flush();
    return file ? size : 0;
  }
};

using Buffer = std::vector<unsigned char>;

template <class File, class Transfer>
void Run(benchmark::State& state, File& file, std::size_t size, Transfer transfer) {
  Buffer buffer(size, 'q');
  std::size_t position = 0;
  for (auto _ : state) {
    if (transfer(file, buffer.data(), size, position) != size) {
      state.SkipWithError("a transfer that is not whole");
      break;
    }
    benchmark::ClobberMemory();
    position = (position + size) % kFileSize;
  }
  state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(size));
}

// Block after block through the file, and round again.
template <class File>
void RegisterTransfers(std::string const& peer) {
  for (auto const& [name, size] : {std::pair("4k", 4096), std::pair("1m", 1 << 20)}) {
    auto const bytes = static_cast<std::size_t>(size);
    std::string const path = TheFolder().File("existing");
    benchmark::RegisterBenchmark(
        ("streams/read_" + (name + ("/" + peer))).c_str(), [=](benchmark::State& state) {
          File file(path);
          Run(state, file, bytes, [](File& f, unsigned char* data, std::size_t n, std::size_t at) {
            return f.Read(data, n, at);
          });
        });
    benchmark::RegisterBenchmark(
        ("streams/write_" + (name + ("/" + peer))).c_str(), [=](benchmark::State& state) {
          File file(path);
          Run(state, file, bytes, [](File& f, unsigned char* data, std::size_t n, std::size_t at) {
            return f.Write(data, n, at);
          });
        });
  }
}

// Block after block onto the end of a new file. At 8 MiB another file begins, untimed: before the
// system starts to write, and without cutting the old one, which would make it write at the close.
template <class File>
void RegisterGrowth(std::string const& peer) {
  for (auto const& [name, size] : {std::pair("4k", 4096), std::pair("1m", 1 << 20)}) {
    auto const bytes = static_cast<std::size_t>(size);
    benchmark::RegisterBenchmark(
        ("streams/grow_" + (name + ("/" + peer))).c_str(), [=](benchmark::State& state) {
          std::string const path = TheFolder().File("growing-" + peer);
          auto file = std::make_unique<File>(path, true);
          Buffer buffer(bytes, 'q');
          std::size_t position = 0;
          for (auto _ : state) {
            if (file->Write(buffer.data(), bytes, position) != bytes) {
              state.SkipWithError("a transfer that is not whole");
              break;
            }
            position += bytes;
            if (position < kGrownSize) continue;
            state.PauseTiming();
            file.reset();
            unlink(path.c_str());
            file = std::make_unique<File>(path, true);
            position = 0;
            state.ResumeTiming();
          }
          state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(bytes));
          file.reset();
          unlink(path.c_str());
        });
  }
}

void RegisterMemoryReads() {
  auto const block = std::make_shared<Buffer>(std::size_t{4} << 20, 'q');
  auto const places = [block](std::size_t size) {
    return [block, size, position = std::size_t{0}]() mutable {
      position = (position + size) % block->size();
      return position;
    };
  };
  for (auto const& [name, bytes] : {std::pair("4k", 4096), std::pair("1m", 1 << 20)}) {
    auto const size = static_cast<std::size_t>(bytes);
    std::string const prefix = "streams/memory_read_" + std::string(name) + "/";
    auto const buffer = std::make_shared<Buffer>(size);
    CUSharedPtr<CUMemoryStream> const ours(new CUMemoryStream(block->data(), block->size(), true));
    MeasureChecked(prefix + "quillmere", static_cast<unsigned long long>(size),
                   [=, next = places(size)]() mutable {
                     return ours->Read(buffer->data(), size, static_cast<long long>(next()),
                                       CUStream_Seek_Origin_Begin);
                   });
    Measure(prefix + "memcpy", [=, next = places(size)]() mutable {
      std::memcpy(buffer->data(), block->data() + next(), size);
      return size;
    });
    auto const qt = std::make_shared<QBuffer>();
    qt->setData(reinterpret_cast<char const*>(block->data()), static_cast<int>(block->size()));
    qt->open(QIODevice::ReadOnly | QIODevice::Unbuffered);
    MeasureChecked(
        prefix + "qbuffer", static_cast<qint64>(size), [=, next = places(size)]() mutable {
          qt->seek(static_cast<qint64>(next()));
          return qt->read(reinterpret_cast<char*>(buffer->data()), static_cast<qint64>(size));
        });
    auto const poco = std::make_shared<Poco::MemoryInputStream>(
        reinterpret_cast<char const*>(block->data()), static_cast<std::streamsize>(block->size()));
    // By an offset from the beginning: Poco's buffer does not know the seek to a position.
    MeasureChecked(prefix + "poco_memory_stream", static_cast<std::streamsize>(size),
                   [=, next = places(size)]() mutable {
                     poco->seekg(static_cast<std::streamoff>(next()), std::ios::beg);
                     poco->read(reinterpret_cast<char*>(buffer->data()),
                                static_cast<std::streamsize>(size));
                     return poco->gcount();
                   });
  }
}

void RegisterAll() {
  FillFile(TheFolder().File("existing"), kFileSize);
  RegisterTransfers<OurFile>("quillmere");
  RegisterTransfers<PlainFile>("pread_pwrite");
  RegisterTransfers<QtFile>("qfile_unbuffered");
  RegisterTransfers<PocoFile>("poco_filestream");
  RegisterGrowth<OurFile>("quillmere");
  RegisterGrowth<GrowingPlainFile>("ftruncate_pwrite");
  RegisterGrowth<PlainFile>("pwrite_alone");
  RegisterGrowth<QtFile>("qfile_unbuffered");
  RegisterGrowth<PocoFile>("poco_filestream");
  RegisterMemoryReads();
}

}  // namespace

int main(int argc, char** argv) { return RunCases(argc, argv, RegisterAll); }
