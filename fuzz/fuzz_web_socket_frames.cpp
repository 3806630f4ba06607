// A client's WebSocket bytes: what they mean does not depend on how they are cut, nothing is kept beyond the longest
// message, and nothing is taken once the client has closed or broken the protocol.
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "fuzz/require.h"
#include "platform/web_api/websocket/frames.h"

using KxNTamberWebApi::FrameReader;

namespace {

constexpr std::size_t LONGEST = 300;

struct Meaning {
    FrameReader::Event event;
    std::string payload;
    std::uint16_t code;
    bool operator==(const Meaning&) const = default;
};

std::vector<Meaning> read(std::string_view bytes, std::size_t cut) {
    FrameReader reader(LONGEST);
    std::vector<Meaning> meanings;
    bool hasEnded = false;
    while (!bytes.empty()) {
        std::string_view piece = bytes.substr(0, cut);
        bytes.remove_prefix(piece.size());
        for (;;) {
            const FrameReader::Event event = reader.next(piece);
            if (event == FrameReader::Event::none) {
                KX_REQUIRE(piece.empty() || hasEnded);
                break;
            }
            KX_REQUIRE(!hasEnded);
            KX_REQUIRE(reader.payload().size() <= LONGEST);
            hasEnded = event == FrameReader::Event::close || event == FrameReader::Event::broken;
            KX_REQUIRE(hasEnded == (reader.closeCode() != 0));
            meanings.push_back({event, std::string(reader.payload()), reader.closeCode()});
        }
    }
    return meanings;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view bytes(reinterpret_cast<const char*>(data), size);
    const std::vector<Meaning> whole = read(bytes, bytes.size() + 1);
    for (const std::size_t cut : {1U, 2U, 7U, 64U}) {
        KX_REQUIRE(read(bytes, cut) == whole);
    }
    return 0;
}
