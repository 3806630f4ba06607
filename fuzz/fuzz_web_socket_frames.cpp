// A client's WebSocket bytes: what they mean does not depend on how they are cut, nothing is kept beyond the longest
// message, and nothing is taken once the client has closed or broken the protocol. What the server frames is read back
// as it was.
#include <vector>

#include "fuzz/require.h"
#include "platform/web_api/websocket/frames.h"

using KxNTamberWebApi::FrameReader;

constexpr std::size_t LONGEST = 300;

struct Meaning {
    FrameReader::Event event;
    std::string payload;
    std::uint16_t code;
    bool operator==(const Meaning&) const = default;
};

static std::vector<Meaning> read(std::string_view bytes, std::size_t cut) {
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

/// The server's frame as a client would send it: with a mask, which changes nothing.
static std::string masked(std::string_view frame, std::size_t headSize) {
    std::string bytes(frame);
    bytes[1] = static_cast<char>(bytes[1] | 0x80);
    return bytes.insert(headSize, 4, '\0');
}

static std::string frameAgain(const Meaning& meaning) {
    using namespace KxNTamberWebApi;
    switch (meaning.event) {
        case FrameReader::Event::message: {
            const FrameHead head(Opcode::text, meaning.payload.size());
            return masked(std::string(head.bytes()) + meaning.payload, head.bytes().size());
        }
        case FrameReader::Event::ping:
            return masked(makeControlFrame(Opcode::ping, meaning.payload), 2);
        default:
            return masked(makeCloseFrame(meaning.code), 2);
    }
}

void fuzz(std::string_view bytes) {
    const std::vector<Meaning> whole = read(bytes, bytes.size() + 1);
    for (const std::size_t cut : {1U, 2U, 7U, 64U}) {
        KX_REQUIRE(read(bytes, cut) == whole);
    }
    for (const Meaning& meaning : whole) {
        const std::vector<Meaning> again = read(frameAgain(meaning), 64);
        KX_REQUIRE(again.size() == 1 && again[0].code == meaning.code && (meaning.code != 0 || again[0] == meaning));
    }
}
