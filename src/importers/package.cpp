#include "importers/package.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <zip.h>
#include <zlib.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <limits>
#include <memory>
#include <optional>
#include <stdexcept>

#include "importers/docx_error.h"
#include "importers/parallel_deflate.h"
#include "model/atomic_file.h"
#include "model/regular_file.h"

namespace inkharbour {

namespace {

constexpr std::size_t kChunkSize = 256 * 1024;

// A fixed modification time keeps written packages byte-stable.
constexpr time_t kMemberTime = 978307200;  // 2001-01-01 00:00:00 UTC

struct FileCloser {
  void operator()(zip_file_t* file) const { zip_fclose(file); }
};

bool validMemberName(std::string_view name) {
  if (name.empty() || name.front() == '/' || name.find('\\') != std::string_view::npos) {
    return false;
  }
  std::size_t start = 0;
  while (start <= name.size()) {
    const auto end = std::min(name.find('/', start), name.size());
    const auto segment = name.substr(start, end - start);
    if (segment.empty() || segment == "." || segment == "..") return false;
    start = end + 1;
  }
  return true;
}

// Members this large are deflated on every core before libzip sees them.
constexpr std::size_t kParallelFrom = 4 << 20;
constexpr int kLevel = 2;

// A libzip source holding data that is already deflated: its stat says so,
// so the archive stores the bytes as they are instead of compressing again.
struct DeflatedSource {
  Deflated deflated;
  std::uint64_t size = 0;  // uncompressed
  std::size_t position = 0;
  zip_error_t error{};

  static zip_int64_t callback(void* state, void* data, zip_uint64_t length,
                              zip_source_cmd_t command) {
    auto* self = static_cast<DeflatedSource*>(state);
    switch (command) {
      case ZIP_SOURCE_OPEN:
        self->position = 0;
        return 0;
      case ZIP_SOURCE_READ: {
        const std::size_t n = std::min<std::size_t>(static_cast<std::size_t>(length),
                                                    self->deflated.data.size() - self->position);
        std::memcpy(data, self->deflated.data.data() + self->position, n);
        self->position += n;
        return static_cast<zip_int64_t>(n);
      }
      case ZIP_SOURCE_CLOSE:
        return 0;
      case ZIP_SOURCE_STAT: {
        auto* stat = static_cast<zip_stat_t*>(data);
        zip_stat_init(stat);
        stat->valid = ZIP_STAT_SIZE | ZIP_STAT_COMP_SIZE | ZIP_STAT_COMP_METHOD | ZIP_STAT_CRC;
        stat->size = self->size;
        stat->comp_size = self->deflated.data.size();
        stat->comp_method = ZIP_CM_DEFLATE;
        stat->crc = self->deflated.crc32;
        return sizeof(zip_stat_t);
      }
      case ZIP_SOURCE_ERROR:
        return zip_error_to_data(&self->error, data, length);
      case ZIP_SOURCE_FREE:
        delete self;
        return 0;
      case ZIP_SOURCE_SUPPORTS:
        return zip_source_make_command_bitmap(ZIP_SOURCE_OPEN, ZIP_SOURCE_READ, ZIP_SOURCE_CLOSE,
                                              ZIP_SOURCE_STAT, ZIP_SOURCE_ERROR, ZIP_SOURCE_FREE,
                                              -1);
      default:
        zip_error_set(&self->error, ZIP_ER_OPNOTSUPP, 0);
        return -1;
    }
  }
};

// One deflater for every member below the parallel size: zlib's state is a
// quarter of a megabyte, more to set up than most parts are to compress.
class MemberDeflater {
 public:
  MemberDeflater() {
    if (deflateInit2(&stream_, kLevel, Z_DEFLATED, -15, 8, Z_DEFAULT_STRATEGY) != Z_OK) {
      throw std::bad_alloc();
    }
  }
  ~MemberDeflater() { deflateEnd(&stream_); }
  MemberDeflater(const MemberDeflater&) = delete;
  MemberDeflater& operator=(const MemberDeflater&) = delete;

  Deflated operator()(std::string_view bytes) {
    deflateReset(&stream_);
    const auto* input = reinterpret_cast<const Bytef*>(bytes.data());
    Deflated out{
        .data = std::string(deflateBound(&stream_, bytes.size()), '\0'),
        .crc32 = static_cast<std::uint32_t>(crc32(0, input, static_cast<uInt>(bytes.size())))};
    stream_.next_in = const_cast<Bytef*>(input);
    stream_.avail_in = static_cast<uInt>(bytes.size());
    stream_.next_out = reinterpret_cast<Bytef*>(out.data.data());
    stream_.avail_out = static_cast<uInt>(out.data.size());
    if (deflate(&stream_, Z_FINISH) != Z_STREAM_END) throw std::runtime_error("deflate failed");
    out.data.resize(stream_.total_out);
    return out;
  }

 private:
  z_stream stream_{};
};

[[noreturn]] void zipFailed(const std::string& what) {
  throw DocxError::unzipFailed("zip failed: " + what);
}

}  // namespace

// The archive's file as libzip reads it, counting the bytes read: what a
// member has inflated from is what libzip read while inflating it, whatever
// the central directory claims about its compressed size.
struct Package::CountingSource {
  int fd = -1;
  std::uint64_t size = 0;
  std::uint64_t offset = 0;
  std::uint64_t bytesRead = 0;
  zip_error_t error{};

  static zip_int64_t callback(void* state, void* data, zip_uint64_t length,
                              zip_source_cmd_t command) {
    auto* self = static_cast<CountingSource*>(state);
    switch (command) {
      case ZIP_SOURCE_OPEN:
        self->offset = 0;
        return 0;
      case ZIP_SOURCE_READ: {
        const auto wanted = static_cast<std::size_t>(
            std::min<std::uint64_t>(length, self->size - std::min(self->offset, self->size)));
        ssize_t n;
        do {
          n = ::pread(self->fd, data, wanted, static_cast<off_t>(self->offset));
        } while (n < 0 && errno == EINTR);
        if (n < 0) {
          zip_error_set(&self->error, ZIP_ER_READ, errno);
          return -1;
        }
        self->offset += static_cast<std::uint64_t>(n);
        self->bytesRead += static_cast<std::uint64_t>(n);
        return n;
      }
      case ZIP_SOURCE_CLOSE:
        return 0;
      case ZIP_SOURCE_SEEK: {
        const zip_int64_t to =
            zip_source_seek_compute_offset(self->offset, self->size, data, length, &self->error);
        if (to < 0) return -1;
        self->offset = static_cast<std::uint64_t>(to);
        return 0;
      }
      case ZIP_SOURCE_TELL:
        return static_cast<zip_int64_t>(self->offset);
      case ZIP_SOURCE_STAT: {
        auto* stat = static_cast<zip_stat_t*>(data);
        zip_stat_init(stat);
        stat->valid = ZIP_STAT_SIZE;
        stat->size = self->size;
        return sizeof(zip_stat_t);
      }
      case ZIP_SOURCE_ERROR:
        return zip_error_to_data(&self->error, data, length);
      case ZIP_SOURCE_FREE:
        ::close(self->fd);
        delete self;
        return 0;
      case ZIP_SOURCE_SUPPORTS:
        return ZIP_SOURCE_SUPPORTS_SEEKABLE;
      default:
        zip_error_set(&self->error, ZIP_ER_OPNOTSUPP, 0);
        return -1;
    }
  }
};

Package::Package(const std::filesystem::path& archive, const ImportLimits& limits)
    : path_(archive), budget_(limits) {
  // A file that cannot be opened as an archive leaves archive_ null: every
  // member then reads as absent. Only a regular file is opened, and without
  // blocking, so that a FIFO found where a package was (an open for reading
  // would wait for its writer) cannot stall the caller.
  const int fd = openRegularFile(archive, openError_);
  if (fd < 0) return;
  struct stat status {};
  if (::fstat(fd, &status) != 0) {
    ::close(fd);
    return;
  }
  identity_ = {static_cast<std::uint64_t>(status.st_dev), static_cast<std::uint64_t>(status.st_ino),
               static_cast<std::uint64_t>(status.st_size),
               static_cast<std::uint64_t>(status.st_mtim.tv_sec),
               static_cast<std::uint64_t>(status.st_mtim.tv_nsec)};
  auto* source = new CountingSource{.fd = fd, .size = static_cast<std::uint64_t>(status.st_size)};
  zip_error_init(&source->error);
  zip_source_t* zipSource = zip_source_function_create(&CountingSource::callback, source, nullptr);
  if (zipSource == nullptr) {
    ::close(fd);
    delete source;
    return;
  }
  // From here the libzip source owns the descriptor and the counter; on
  // success the archive owns the source.
  archive_ = zip_open_from_source(zipSource, ZIP_RDONLY, nullptr);
  if (archive_ == nullptr) {
    zip_source_free(zipSource);
    return;
  }
  source_ = source;
}

void Package::checkOpened() const {
  if (!openError_) return;
  throw std::filesystem::filesystem_error("Cannot open the file", path_, openError_);
}

Package::~Package() {
  if (archive_ != nullptr) zip_discard(archive_);
}

std::int64_t Package::locate(std::string_view member) const {
  if (archive_ == nullptr) return -1;
  const std::string name(member);
  zip_int64_t index = zip_name_locate(archive_, name.c_str(), ZIP_FL_ENC_RAW);
  if (index < 0) {
    // Some writers store Windows separators; such a package is still readable.
    std::string windowsName = name;
    std::replace(windowsName.begin(), windowsName.end(), '/', '\\');
    if (windowsName != name) index = zip_name_locate(archive_, windowsName.c_str(), ZIP_FL_ENC_RAW);
  }
  return index;
}

std::vector<std::string> Package::members() const {
  std::vector<std::string> names;
  if (archive_ == nullptr) return names;
  const zip_int64_t count = zip_get_num_entries(archive_, 0);
  for (zip_int64_t i = 0; i < count; ++i) {
    const char* name = zip_get_name(archive_, static_cast<zip_uint64_t>(i), ZIP_FL_ENC_RAW);
    if (name == nullptr) continue;
    std::string entry(name);
    std::replace(entry.begin(), entry.end(), '\\', '/');
    names.push_back(std::move(entry));
  }
  return names;
}

bool Package::has(std::string_view member) const {
  return locate(member) >= 0;
}

Package::Copied Package::copiedSource(zip* into, std::string_view member) const {
  const zip_int64_t index = locate(member);
  if (index < 0) return {};
  const auto at = static_cast<zip_uint64_t>(index);
  zip_stat_t stat;
  zip_stat_init(&stat);
  const bool stored = zip_stat_index(archive_, at, 0, &stat) == 0 &&
                      (stat.valid & ZIP_STAT_COMP_METHOD) != 0 && stat.comp_method == ZIP_CM_STORE;
  return {.source = zip_source_zip(into, archive_, at, 0, 0, -1), .stored = stored};
}

// The inflate buffer, large enough for the member's declared size up to one
// chunk: most members are small, and a large buffer costs more to set up
// than to use.
std::span<char> Package::bufferFor(const zip_stat_t& stat) {
  const std::size_t wanted =
      (stat.valid & ZIP_STAT_SIZE) != 0
          ? static_cast<std::size_t>(std::clamp<std::uint64_t>(stat.size + 1, 4096, kChunkSize))
          : kChunkSize;
  if (wanted > bufferSize_) {
    buffer_.reset(new char[wanted]);
    bufferSize_ = wanted;
  }
  return {buffer_.get(), bufferSize_};
}

// Counts `count` more inflated bytes of a member that has inflated from
// `compressed` bytes so far, stopping at the member and ratio limits.
void Package::countInflated(const std::string& name, std::uint64_t delivered, std::uint64_t count,
                            std::uint64_t compressed) {
  const auto& limits = budget_.limits();
  if (delivered + count > limits.memberBytes) {
    throw DocxError::limitExceeded(name + " inflates to more than " +
                                   describeBytes(limits.memberBytes) +
                                   ", the limit for one member");
  }
  // Past this many inflated bytes the member compresses suspiciously well.
  std::uint64_t byRatio = 0;
  if (__builtin_mul_overflow(compressed, limits.compressionRatio, &byRatio)) {
    byRatio = std::numeric_limits<std::uint64_t>::max();
  }
  if (delivered + count > std::max(byRatio, limits.ratioCheckAfter)) {
    throw DocxError::limitExceeded(name + " inflates to more than " +
                                   std::to_string(limits.compressionRatio) +
                                   " times its compressed size, the limit for one member");
  }
  budget_.addInflated(name, count);
}

bool Package::stream(std::string_view member, const std::function<void(std::string_view)>& sink) {
  const zip_int64_t index = locate(member);
  if (index < 0) return false;
  const std::string name(member);

  std::unique_ptr<zip_file_t, FileCloser> file(
      zip_fopen_index(archive_, static_cast<zip_uint64_t>(index), 0));
  // Encrypted members and unknown compression methods produce nothing: absent.
  if (!file) return false;

  zip_stat_t stat;
  zip_stat_init(&stat);
  const bool knowsCompressedSize =
      zip_stat_index(archive_, static_cast<zip_uint64_t>(index), 0, &stat) == 0 &&
      (stat.valid & ZIP_STAT_COMP_SIZE) != 0;
  // The member has inflated from no more than libzip read since it opened
  // the member, nor more than the central directory declares. A directory
  // that overstates the size therefore cannot lift the ratio limit.
  const std::uint64_t readBefore = source_->bytesRead;
  const auto buffer = bufferFor(stat);
  std::uint64_t delivered = 0;
  for (;;) {
    const zip_int64_t n = zip_fread(file.get(), buffer.data(), buffer.size());
    if (n < 0) {
      if (delivered == 0) return false;
      throw DocxError::unzipFailed(name + ": " + zip_file_strerror(file.get()));
    }
    if (n == 0) break;
    const auto count = static_cast<std::uint64_t>(n);
    std::uint64_t compressed = source_->bytesRead - readBefore;
    if (knowsCompressedSize) compressed = std::min<std::uint64_t>(compressed, stat.comp_size);
    countInflated(name, delivered, count, compressed);
    delivered += count;
    sink(std::string_view(buffer.data(), count));
  }
  // An empty member is a present member: stream() reports it with no chunks.
  return true;
}

bool Package::stream(std::string_view member, const std::function<void(std::string_view)>& sink,
                     DeflateBlocks& blocks) {
  blocks = {};
  const zip_int64_t index = locate(member);
  if (index < 0) return false;
  const std::string name(member);
  zip_stat_t stat;
  zip_stat_init(&stat);
  const auto wanted = ZIP_STAT_COMP_METHOD | ZIP_STAT_ENCRYPTION_METHOD | ZIP_STAT_CRC;
  const bool plainDeflate =
      zip_stat_index(archive_, static_cast<zip_uint64_t>(index), 0, &stat) == 0 &&
      (stat.valid & wanted) == wanted && stat.comp_method == ZIP_CM_DEFLATE &&
      stat.encryption_method == ZIP_EM_NONE;
  std::unique_ptr<zip_file_t, FileCloser> file(
      plainDeflate ? zip_fopen_index(archive_, static_cast<zip_uint64_t>(index), ZIP_FL_COMPRESSED)
                   : nullptr);
  if (!file) return stream(member, sink);

  // The compressed bytes are kept whole; no member within the limit
  // deflates to much more than its own size.
  const auto& limits = budget_.limits();
  const std::uint64_t compressedLimit = limits.memberBytes + limits.memberBytes / 64 + 4096;
  std::string& compressed = blocks.compressed;
  for (;;) {
    const std::size_t at = compressed.size();
    compressed.resize(at + kChunkSize);
    const zip_int64_t n = zip_fread(file.get(), compressed.data() + at, kChunkSize);
    compressed.resize(at + static_cast<std::size_t>(std::max<zip_int64_t>(n, 0)));
    if (n < 0) {
      blocks = {};
      return false;
    }
    if (n == 0) break;
    if (compressed.size() > compressedLimit) countInflated(name, 0, compressed.size(), 0);
  }
  // No compressed bytes at all: an empty member, as libzip reads it too.
  if (compressed.empty()) {
    blocks = {};
    return true;
  }

  std::uint64_t delivered = 0;
  uLong crc = crc32(0, nullptr, 0);
  std::string error;
  const bool inflated = inflateNotingBlocks(
      blocks, bufferFor(stat),
      [&](std::string_view chunk, std::uint64_t consumed) {
        countInflated(name, delivered, chunk.size(), consumed);
        delivered += chunk.size();
        crc = crc32(crc, reinterpret_cast<const Bytef*>(chunk.data()),
                    static_cast<uInt>(chunk.size()));
        sink(chunk);
      },
      error);
  if (!inflated) {
    blocks = {};
    if (delivered == 0) return false;
    throw DocxError::unzipFailed(name + ": Zlib error: " + error);
  }
  if (crc != stat.crc || ((stat.valid & ZIP_STAT_SIZE) != 0 && delivered != stat.size)) {
    throw DocxError::unzipFailed(name + ": CRC error");
  }
  return true;
}

std::optional<Data> Package::read(std::string_view member) {
  Data bytes;
  // Reserved at the declared size, so that a large picture is not copied as
  // the buffer grows; no more than the limits let the member inflate to, so
  // that a lie costs little address space and no memory.
  zip_stat_t stat;
  zip_stat_init(&stat);
  if (const auto index = locate(member);
      index >= 0 && zip_stat_index(archive_, static_cast<zip_uint64_t>(index), 0, &stat) == 0 &&
      (stat.valid & ZIP_STAT_SIZE) != 0) {
    const auto& limits = budget_.limits();
    std::uint64_t byRatio = 0;
    if (__builtin_mul_overflow(source_->size, limits.compressionRatio, &byRatio)) {
      byRatio = std::numeric_limits<std::uint64_t>::max();
    }
    bytes.reserve(static_cast<std::size_t>(
        std::min({static_cast<std::uint64_t>(stat.size), limits.memberBytes,
                  std::max(byRatio, limits.ratioCheckAfter)})));
  }
  const bool present = stream(member, [&](std::string_view chunk) {
    bytes.insert(bytes.end(), chunk.begin(), chunk.end());
  });
  if (!present) return std::nullopt;
  return bytes;
}

std::optional<Data> Package::readOptional(std::string_view member) {
  try {
    return read(member);
  } catch (const DocxError& error) {
    if (error.isLimit()) throw;
    return std::nullopt;
  }
}

std::optional<SharedBytes> Package::readPicture(std::string_view member) {
  auto found = pictures_.find(member);
  if (found == pictures_.end()) {
    std::optional<SharedBytes> picture;
    if (auto bytes = readOptional(member)) picture = std::move(*bytes);
    found = pictures_.emplace(std::string(member), std::move(picture)).first;
  }
  if (found->second) budget_.addPicture(member, found->second->size());
  return found->second;
}

namespace ZipTool {

std::optional<Data> run(const std::filesystem::path& archive, std::string_view member) {
  Package package(archive);
  return package.read(member);
}

void writePackage(const std::vector<PackageMember>& members,
                  const std::filesystem::path& destination) {
  zip_error_t error;
  zip_error_init(&error);
  zip_source_t* target = zip_source_buffer_create(nullptr, 0, 0, &error);
  if (target == nullptr) zipFailed(zip_error_strerror(&error));
  // The archive is built in memory and only then written over the destination.
  zip_source_keep(target);
  std::unique_ptr<zip_source_t, decltype(&zip_source_free)> targetOwner(target, zip_source_free);

  zip_t* archive = zip_open_from_source(target, ZIP_TRUNCATE, &error);
  if (archive == nullptr) zipFailed(zip_error_strerror(&error));

  // Discarded on every way out but a successful close, a failed deflate
  // (out of memory) included.
  std::unique_ptr<zip_t, decltype(&zip_discard)> unclosed(archive, zip_discard);
  std::optional<MemberDeflater> deflater;
  for (const auto& member : members) {
    if (!validMemberName(member.path)) zipFailed("invalid member name \"" + member.path + "\"");
    if (member.unchangedIn != nullptr) {
      if (const auto copied = member.unchangedIn->copiedSource(archive, member.path);
          copied.source != nullptr) {
        const zip_int64_t index =
            zip_file_add(archive, member.path.c_str(), copied.source, ZIP_FL_ENC_UTF_8);
        if (index < 0) {
          zip_source_free(copied.source);
          zipFailed(member.path + ": " + zip_strerror(archive));
        }
        const auto at = static_cast<zip_uint64_t>(index);
        // Stored bytes count as uncompressed, which libzip would deflate. The
        // member keeps its time as well.
        if (copied.stored) zip_set_file_compression(archive, at, ZIP_CM_STORE, 0);
        continue;
      }
    }
    // Level 2 packs a book in a quarter of the time of level 6 for files
    // about a seventh larger.
    const bool reuse = member.old != nullptr && !member.old->blocks.empty();
    Deflated deflated;
    if (reuse) {
      deflated = deflateReusing(member.bytes, *member.old, member.copied, kLevel);
    } else if (member.bytes.size() >= kParallelFrom) {
      deflated = deflateInParallel(member.bytes, kLevel);
    } else {
      if (!deflater) deflater.emplace();
      deflated = (*deflater)(member.bytes);
    }
    // What deflate cannot shrink (a picture, a tiny part) is stored as it is.
    const bool stored = deflated.data.size() >= member.bytes.size() && !reuse;
    zip_source_t* source = nullptr;
    if (stored) {
      source = zip_source_buffer(archive, member.bytes.data(), member.bytes.size(), 0);
    } else {
      auto* state =
          new DeflatedSource{.deflated = std::move(deflated), .size = member.bytes.size()};
      zip_error_init(&state->error);
      source = zip_source_function(archive, &DeflatedSource::callback, state);
      if (source == nullptr) delete state;
    }
    if (source == nullptr) zipFailed(zip_strerror(archive));
    const zip_int64_t index = zip_file_add(archive, member.path.c_str(), source, ZIP_FL_ENC_UTF_8);
    if (index < 0) {
      zip_source_free(source);
      zipFailed(member.path + ": " + zip_strerror(archive));
    }
    const auto at = static_cast<zip_uint64_t>(index);
    // A deflated member keeps the default method, under which libzip takes
    // the bytes as they are.
    if (stored) zip_set_file_compression(archive, at, ZIP_CM_STORE, 0);
    zip_file_set_mtime(archive, at, kMemberTime, 0);
  }
  if (zip_close(archive) != 0) zipFailed(zip_strerror(archive));
  unclosed.release();  // closed, and so freed

  std::string bytes;
  zip_stat_t stat;
  if (zip_source_open(target) != 0) zipFailed("cannot read the new package");
  if (zip_source_stat(target, &stat) == 0 && (stat.valid & ZIP_STAT_SIZE)) {
    bytes.resize(stat.size);
    const zip_int64_t n = zip_source_read(target, bytes.data(), stat.size);
    if (n < 0 || static_cast<zip_uint64_t>(n) != stat.size) {
      zip_source_close(target);
      zipFailed("cannot read the new package");
    }
  }
  zip_source_close(target);
  writeFileAtomically(destination, bytes);
}

}  // namespace ZipTool

}  // namespace inkharbour
