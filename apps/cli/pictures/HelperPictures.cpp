#include "apps/cli/pictures/HelperPictures.h"

#include <fmt/format.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstddef>
#include <cstring>
#include <filesystem>
#include <string_view>
#include <system_error>
#include <utility>

#include "apps/cli/Problem.h"
#include "apps/cli/pictures/Descriptor.h"
#include "apps/cli/pictures/Exchange.h"

namespace twintrue::cli {
namespace {

constexpr std::size_t kFrameChannels = 3;

// The file that the helper and this process share, header first.
class ExchangeFile {
 public:
  ExchangeFile() : file_(memfd_create("twintrue-picture", MFD_CLOEXEC), "memfd_create") {
    if (ftruncate(file_.get(), kExchangeHeaderBytes) != 0) {
      throw std::system_error(errno, std::generic_category(), "ftruncate");
    }
  }

  int descriptor() const { return file_.get(); }

  ExchangeHeader header() const {
    ExchangeHeader header;
    if (!read_at(0, &header, sizeof header)) header.state = ExchangeState::kSilent;
    return header;
  }

  std::uint64_t size() const {
    struct stat status {};
    return fstat(file_.get(), &status) == 0 ? static_cast<std::uint64_t>(status.st_size) : 0;
  }

  // By copying, since a mapped file that someone shortens ends the process that looks at it. False if the
  // file ends before.
  bool read_at(std::size_t offset, void* place, std::size_t bytes) const {
    auto* next = static_cast<std::byte*>(place);
    while (bytes > 0) {
      const ssize_t got = pread(file_.get(), next, bytes, static_cast<off_t>(offset));
      if (got < 0 && errno == EINTR) continue;
      if (got <= 0) return false;
      next += got;
      offset += static_cast<std::size_t>(got);
      bytes -= static_cast<std::size_t>(got);
    }
    return true;
  }

  void write_at(std::size_t offset, const void* place, std::size_t bytes) const {
    const auto* next = static_cast<const std::byte*>(place);
    while (bytes > 0) {
      const ssize_t put = pwrite(file_.get(), next, bytes, static_cast<off_t>(offset));
      if (put < 0 && errno == EINTR) continue;
      if (put <= 0) throw std::system_error(errno, std::generic_category(), "pwrite");
      next += put;
      offset += static_cast<std::size_t>(put);
      bytes -= static_cast<std::size_t>(put);
    }
  }

 private:
  Descriptor file_;
};

// What a library says may hold anything, a terminal's commands among it.
std::string printable(std::string_view text) {
  std::string clean(text.substr(0, text.find('\0')));
  std::replace_if(
      clean.begin(), clean.end(), [](char c) { return static_cast<unsigned char>(c) < 0x20 || c == 0x7f; },
      ' ');
  return clean;
}

template <std::size_t N>
std::string text_of(const std::array<char, N>& field) {
  return printable(std::string_view(field.data(), field.size()));
}

std::string first_line(const std::string& text) { return printable(text.substr(0, text.find('\n'))); }

std::string end_text(const HelperEnd& end) {
  if (end.how == HelperEnd::How::kSignal)
    return fmt::format("signal {}, {}", end.number, strsignal(end.number));
  const std::string line = first_line(end.said);
  return line.empty() ? fmt::format("exit code {}", end.number) : line;
}

// The helper was never reached: the picture is not to blame.
void require_started(const HelperRun& helper, const HelperEnd& end, const ExchangeHeader& header) {
  if (header.state != ExchangeState::kSilent || end.how != HelperEnd::How::kExit) return;
  const std::string line = first_line(end.said);
  std::error_code error;
  const bool there = std::filesystem::exists(helper.program, error);
  throw Failure(ExitCode::kOther, Problem{fmt::format("picture helper: {}", helper.program),
                                          !there         ? "no such file"
                                          : line.empty() ? "a program that does not start"
                                                         : line,
                                          "the program that reads pictures for this one",
                                          "install twintrue whole, with OpenImageIO"});
}

// True if the helper came to its own end, and the exchange tells the rest.
bool is_served(const HelperEnd& end) { return end.how == HelperEnd::How::kExit && end.number == 0; }

PictureProblem told_problem(const ExchangeHeader& header) {
  return {text_of(header.found), text_of(header.expected), text_of(header.remedy)};
}

// What kept the helper from decoding a file of that kind; nothing if it did.
std::optional<PictureProblem> decoding_problem(const HelperRun& helper, const HelperEnd& end,
                                               const ExchangeHeader& header, const char* kind) {
  const char* const kRemedy = "copy the file again, or save it as PNG or JPEG by another program";
  if (end.how == HelperEnd::How::kTime) {
    return PictureProblem{fmt::format("a {} file that takes longer than {} s to decode", kind,
                                      std::chrono::duration<double>(helper.time).count()),
                          "a picture that is decoded sooner", kRemedy};
  }
  if (is_served(end) && header.state == ExchangeState::kDone) return std::nullopt;
  if (is_served(end) && header.state == ExchangeState::kProblem) return told_problem(header);
  if (is_served(end) && header.state == ExchangeState::kNoMemory) {
    constexpr double kGibibyte = 1 << 30;
    return PictureProblem{fmt::format("a {} file that takes more than {:.3g} GiB of memory to decode", kind,
                                      static_cast<double>(helper.memory) / kGibibyte),
                          "a picture that takes less", kRemedy};
  }
  return PictureProblem{fmt::format("a {} file that makes its decoder fail ({})", kind, end_text(end)),
                        "a sound picture", kRemedy};
}

// True for the bytes of a sample that a picture may have, if `largest` is the most.
bool is_sample(std::uint32_t bytes, render::SampleType largest) {
  using render::SampleType;
  return bytes <= static_cast<std::uint32_t>(largest) &&
         (bytes == static_cast<std::uint32_t>(SampleType::kByte) ||
          bytes == static_cast<std::uint32_t>(SampleType::kWord) ||
          bytes == static_cast<std::uint32_t>(SampleType::kFloat));
}

// Has the helper do `task` with a file, and looks at all that it left before any of it counts.
std::variant<DeepFrame, PictureProblem> read_deep(const HelperRun& helper, const char* task,
                                                  render::SampleType largest, const PictureKind& kind,
                                                  const std::string& path) {
  const ExchangeFile exchange;
  HelperRun run = helper;
  run.file_bytes = kExchangeHeaderBytes + static_cast<std::uint64_t>(kMostPicturePixels) * kFrameChannels *
                                              render::bytes_of(largest);
  const HelperEnd end = run_helper(run, {task, kind.reader, path}, {exchange.descriptor()});
  const ExchangeHeader header = exchange.header();
  require_started(run, end, header);
  if (auto problem = decoding_problem(run, end, header, kind.name)) return std::move(*problem);

  const PictureProblem nonsense{fmt::format("a {} file that its decoder makes no picture of", kind.name),
                                "a sound picture", "save it as PNG or JPEG by another program"};
  if (!is_picture_size(header.width, header.height) || header.pictures < 1 ||
      !is_sample(header.sample_bytes, largest)) {
    return nonsense;
  }
  DeepFrame frame;
  frame.width = static_cast<std::uint32_t>(header.width);
  frame.height = static_cast<std::uint32_t>(header.height);
  frame.type = static_cast<render::SampleType>(header.sample_bytes);
  frame.light = header.linear != 0 ? render::Light::kLinear : render::Light::kEncoded;
  frame.pictures = header.pictures;
  const std::size_t bytes =
      std::size_t{frame.width} * frame.height * kFrameChannels * render::bytes_of(frame.type);
  if (exchange.size() != kExchangeHeaderBytes + bytes) return nonsense;
  frame.samples.resize(bytes);
  if (!exchange.read_at(kExchangeHeaderBytes, frame.samples.data(), bytes)) return nonsense;
  return frame;
}

}  // namespace

HelperRun installed_helper() {
  std::error_code error;
  const std::filesystem::path program = std::filesystem::read_symlink("/proc/self/exe", error);
  HelperRun helper;
  helper.program = (program.parent_path() / TWINTRUE_PICTURE_HELPER).lexically_normal().string();
  return helper;
}

std::variant<Frame, PictureProblem> read_by_helper(const HelperRun& helper, const PictureKind& kind,
                                                   const std::string& path) {
  auto picture = read_deep(helper, "read", render::SampleType::kByte, kind, path);
  if (auto* const problem = std::get_if<PictureProblem>(&picture)) return std::move(*problem);
  auto& deep = std::get<DeepFrame>(picture);
  return Frame{deep.width, deep.height, std::move(deep.samples), deep.pictures};
}

std::variant<DeepFrame, PictureProblem> read_deep_by_helper(const HelperRun& helper, const PictureKind& kind,
                                                            const std::string& path) {
  return read_deep(helper, "read-deep", render::SampleType::kFloat, kind, path);
}

std::optional<PictureProblem> write_by_helper(const HelperRun& helper, const std::string& writer,
                                              int descriptor, const PictureSamples& picture) {
  const ExchangeFile exchange;
  ExchangeHeader header;
  header.width = picture.width;
  header.height = picture.height;
  header.channels = picture.channels;
  header.sample_bytes = static_cast<std::uint32_t>(picture.type);
  exchange.write_at(0, &header, sizeof header);
  exchange.write_at(kExchangeHeaderBytes, picture.samples,
                    static_cast<std::size_t>(picture.width) * static_cast<std::size_t>(picture.height) *
                        picture.channels * render::bytes_of(picture.type));
  HelperRun run = helper;
  // What is written is our own, and a large picture takes its time.
  run.time = std::chrono::hours(1);
  const HelperEnd end = run_helper(run, {"write", writer}, {exchange.descriptor(), descriptor});
  header = exchange.header();
  require_started(run, end, header);
  if (is_served(end) && header.state == ExchangeState::kDone) return std::nullopt;
  if (is_served(end) && header.state == ExchangeState::kProblem) return told_problem(header);
  return PictureProblem{fmt::format("the picture could not be written ({})", end_text(end)),
                        "room for it on the disk", "free some space or choose another folder"};
}

}  // namespace twintrue::cli
