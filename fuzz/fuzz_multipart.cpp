// A multipart body means the same however it is cut.
#include <memory>

#include "fuzz/require.h"
#include "platform/web_api/http/multipart_reader.h"

using namespace KxNTamberWebApi;

namespace {

struct Recorder : MultipartFileSink {
    bool onFileBegin(const std::string& fieldName, const std::string& fileName, const std::string& type) override {
        KX_REQUIRE(!isOpen && !fileName.empty());
        KX_REQUIRE(fileName.find_first_of(std::string_view("/\\\0\r\n", 5)) == std::string::npos);
        isOpen = true;
        seen += "[" + fieldName + "|" + fileName + "|" + type + "]";
        return true;
    }
    bool onFileData(std::string_view data) override {
        KX_REQUIRE(isOpen && !data.empty());
        seen += data;
        return true;
    }
    bool onFileEnd() override {
        KX_REQUIRE(isOpen);
        isOpen = false;
        seen += "[end]";
        return true;
    }

    std::string seen;
    bool isOpen = false;
};

/// Reads `body` in pieces whose sizes `nextSize` gives, each in memory of its own.
template <typename NextSize>
std::string readInPieces(std::string_view boundary, std::string_view body, NextSize nextSize) {
    Recorder recorder;
    MultipartReader reader(boundary, recorder);
    while (!body.empty()) {
        const std::size_t size = std::min<std::size_t>(nextSize(), body.size());
        const auto piece = std::make_unique<char[]>(size);
        body.copy(piece.get(), size);
        reader.feed({piece.get(), size});
        body.remove_prefix(size);
    }
    const auto status = reader.finish();
    KX_REQUIRE(status == MultipartReader::Status::done || status == MultipartReader::Status::failed);
    KX_REQUIRE((status == MultipartReader::Status::failed) == !reader.error().empty());
    KX_REQUIRE(status != MultipartReader::Status::done || !recorder.isOpen);
    return recorder.seen + "|" + reader.error();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size < 3) {
        return 0;
    }
    constexpr std::string_view boundaries[] = {"XX", "-", "----WebKitFormBoundary7MA4YWxk"};
    const std::string_view boundary = boundaries[data[0] % std::size(boundaries)];
    std::uint32_t random = data[1] | static_cast<std::uint32_t>(data[2]) << 8 | 1;
    const std::string_view body(reinterpret_cast<const char*>(data) + 3, size - 3);

    const std::string whole = readInPieces(boundary, body, [&] { return body.size(); });
    KX_REQUIRE(readInPieces(boundary, body, [] { return 1; }) == whole);
    KX_REQUIRE(readInPieces(boundary, body, [&] {
                   random = random * 1664525 + 1013904223;
                   return 1 + (random >> 24) % 40;
               }) == whole);
    return 0;
}
