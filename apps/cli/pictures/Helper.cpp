#include "apps/cli/pictures/Helper.h"

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <exception>
#include <new>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>
#include <vector>

#include "apps/cli/pictures/Exchange.h"
#include "apps/cli/pictures/Frame.h"
#include "apps/cli/pictures/OiioPictures.h"

namespace twintrue::cli {
namespace {

constexpr int kServed = 0;
constexpr int kFailed = 1;
constexpr int kMisused = 2;

void check(bool good, const char* call) {
  if (!good && errno == ENOMEM) throw std::bad_alloc();
  if (!good) throw std::system_error(errno, std::generic_category(), call);
}

// Stays mapped to the end of the process.
std::byte* map_exchange(std::size_t bytes) {
  void* const start = mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_SHARED, kExchangeDescriptor, 0);
  check(start != MAP_FAILED, "mmap");
  return static_cast<std::byte*>(start);
}

template <std::size_t N>
void put(std::array<char, N>& place, std::string_view text) {
  std::copy_n(text.begin(), std::min(text.size(), N), place.begin());
}

std::optional<PictureProblem> serve_read(ExchangeHeader& header, Depth depth, const std::string& reader,
                                         const std::string& path) {
  constexpr std::size_t kChannels = 3;
  const auto room = [&header](std::int32_t width, std::int32_t height, render::SampleType type) {
    const std::size_t bytes = kExchangeHeaderBytes + static_cast<std::size_t>(width) *
                                                         static_cast<std::size_t>(height) * kChannels *
                                                         render::bytes_of(type);
    check(ftruncate(kExchangeDescriptor, static_cast<off_t>(bytes)) == 0, "ftruncate");
    header.width = width;
    header.height = height;
    header.channels = kChannels;
    header.sample_bytes = static_cast<std::uint32_t>(type);
    return reinterpret_cast<std::uint8_t*>(map_exchange(bytes) + kExchangeHeaderBytes);
  };
  PictureFacts facts;
  auto problem = decode_picture(reader, path, depth, room, &facts);
  header.pictures = facts.pictures;
  header.linear = facts.light == render::Light::kLinear ? 1 : 0;
  return problem;
}

std::optional<PictureProblem> serve_write(const ExchangeHeader& header, const std::string& writer) {
  PictureSamples picture{header.width, header.height, header.channels,
                         static_cast<render::SampleType>(header.sample_bytes), nullptr};
  const std::size_t bytes = static_cast<std::size_t>(header.width) * static_cast<std::size_t>(header.height) *
                            header.channels * header.sample_bytes;
  picture.samples = map_exchange(kExchangeHeaderBytes + bytes) + kExchangeHeaderBytes;
  // By its descriptor: whatever has the name by now, this is the file that the program holds.
  return write_samples(writer, "/proc/self/fd/" + std::to_string(kOutputDescriptor), picture);
}

}  // namespace

int picture_helper(int argc, char** argv) {
  const std::vector<std::string> arguments(argv + 1, argv + argc);
  ExchangeHeader* header = nullptr;
  try {
    header = reinterpret_cast<ExchangeHeader*>(map_exchange(kExchangeHeaderBytes));
    header->state = ExchangeState::kStarted;
    std::optional<PictureProblem> problem;
    if (arguments.size() == 3 && arguments[0] == "read") {
      problem = serve_read(*header, Depth::kBytes, arguments[1], arguments[2]);
    } else if (arguments.size() == 3 && arguments[0] == "read-deep") {
      problem = serve_read(*header, Depth::kAsStored, arguments[1], arguments[2]);
    } else if (arguments.size() == 2 && arguments[0] == "write") {
      problem = serve_write(*header, arguments[1]);
    } else {
      return kMisused;
    }
    if (problem) {
      put(header->found, problem->found);
      put(header->expected, problem->expected);
      put(header->remedy, problem->remedy);
    }
    header->state = problem ? ExchangeState::kProblem : ExchangeState::kDone;
    return kServed;
  } catch (const std::bad_alloc&) {
    if (header != nullptr) header->state = ExchangeState::kNoMemory;
    return kServed;
  } catch (const std::exception& error) {
    std::fprintf(stderr, "%s\n", error.what());
  }
  return kFailed;
}

}  // namespace twintrue::cli
