// A multipart body means the same however it is cut, and who has had enough of it gets no more.
#include <memory>

#include "fuzz/require.h"
#include "platform/web_api/http/multipart_reader.h"

using namespace KxNTamberWebApi;

/// What a sink refuses.
enum class Refused { nothing, begin, data, end };

struct Recorder : MultipartFileSink {
    explicit Recorder(Refused what) : refused(what) {}

    bool onFileBegin(const std::string& fieldName, const std::string& fileName, const std::string& type) override {
        KX_REQUIRE(!isOpen && !fileName.empty());
        KX_REQUIRE(fileName.find_first_of(std::string_view("/\\\0\r\n", 5)) == std::string::npos);
        isOpen = true;
        seen += "[" + fieldName + "|" + fileName + "|" + type + "]";
        return take(Refused::begin);
    }
    bool onFileData(std::string_view data) override {
        KX_REQUIRE(isOpen && !data.empty() && !hasRefused);
        seen += refused == Refused::data ? data.substr(0, 1) : data;
        return take(Refused::data);
    }
    bool onFileEnd() override {
        KX_REQUIRE(isOpen);
        isOpen = false;
        seen += "[end]";
        return take(Refused::end);
    }

    bool take(Refused what) {
        KX_REQUIRE(!hasRefused);
        hasRefused = what == refused;
        return !hasRefused;
    }

    const Refused refused;
    std::string seen;
    bool isOpen = false;
    bool hasRefused = false;
};

/// Reads `body` in pieces whose sizes `nextSize` gives, each in memory of its own.
template <typename NextSize>
std::string readInPieces(std::string_view boundary, Refused refused, std::string_view body, NextSize nextSize) {
    Recorder recorder(refused);
    MultipartReader reader(boundary, recorder);
    while (!body.empty()) {
        const std::size_t size = std::min<std::size_t>(nextSize(), body.size());
        const auto piece = std::make_unique<char[]>(size);
        body.copy(piece.get(), size);
        reader.feed({piece.get(), size});
        body.remove_prefix(size);
    }
    const auto status = reader.finish();
    KX_REQUIRE(status != MultipartReader::Status::more);
    KX_REQUIRE((status == MultipartReader::Status::stopped) == recorder.hasRefused);
    KX_REQUIRE((status == MultipartReader::Status::failed) == !reader.error().empty());
    KX_REQUIRE(status != MultipartReader::Status::done || !recorder.isOpen);
    return recorder.seen + "|" + reader.error();
}

void fuzz(std::string_view input) {
    if (input.size() < 3) {
        return;
    }
    constexpr std::string_view boundaries[] = {"XX", "-", "----WebKitFormBoundary7MA4YWxk"};
    const std::string_view boundary = boundaries[byteAt(input, 0) % std::size(boundaries)];
    const auto refused = static_cast<Refused>(byteAt(input, 0) / std::size(boundaries) % 4);
    std::uint32_t random = byteAt(input, 1) | static_cast<std::uint32_t>(byteAt(input, 2)) << 8 | 1;
    const std::string_view body = input.substr(3);

    const std::string whole = readInPieces(boundary, refused, body, [&] { return body.size(); });
    KX_REQUIRE(readInPieces(boundary, refused, body, [] { return 1; }) == whole);
    KX_REQUIRE(readInPieces(boundary, refused, body, [&] {
                   random = random * 1664525 + 1013904223;
                   return 1 + (random >> 24) % 40;
               }) == whole);
}
