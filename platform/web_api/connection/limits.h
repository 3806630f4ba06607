// The fixed bounds of the web API server. A value of its own so that tests need not wait for the real ones.
#pragma once

#include <chrono>
#include <cstddef>

namespace KxNTamberWebApi {

struct Limits {
    using Milliseconds = std::chrono::milliseconds;

    std::size_t requestLine = 8 * 1024;   ///< bytes
    std::size_t headerBlock = 16 * 1024;  ///< bytes, without the request line
    std::size_t jsonBody = 1024 * 1024;   ///< bytes
    int jsonDepth = 64;                   ///< levels of nesting
    Milliseconds header{10'000};          ///< from the first byte of a header block to its end; and for a TLS handshake
    Milliseconds keepAlive{60'000};       ///< without a byte before a request
    Milliseconds progress{30'000};        ///< without a byte moved in a body or an answer

    /// What is still read after an answer that ended a request early, so that the answer reaches the client.
    std::size_t discardKnown = 64 * 1024 * 1024;  ///< bytes, from a client that may come in
    std::size_t discardUnknown = 64 * 1024;       ///< bytes, from anyone else
    Milliseconds discard{10'000};

    Milliseconds guessPause{100};  ///< before an answer to an address that guesses tokens

    std::size_t requestThreads = 256;  ///< the most that pressure adds up to
    std::size_t uploadThreads = 64;
    Milliseconds uploadWait{30'000};                  ///< for a free upload thread, or for memory to begin in
    std::size_t uploadBuffer = 768 * 1024;            ///< bytes read at once, the largest chunk
    std::size_t uploadBeginning = 256 * 1024;         ///< bytes of the file that must have come before it gets a thread
    std::size_t uploadBeginnings = 32 * 1024 * 1024;  ///< bytes of memory for all beginnings
    std::size_t uploadRate = 60 * 1024;               ///< bytes of a body that must come in `uploadRateWindow`
    Milliseconds uploadRateWindow{60'000};

    std::size_t clientMessage = 64 * 1024;  ///< bytes of a message that a client sends
    Milliseconds pingAfter{20'000};
    Milliseconds pongWithin{20'000};
    Milliseconds streamProgress{60'000};
    Milliseconds closeHandshake{10'000};
    Milliseconds farewell{1'000};  ///< without a byte taken, when the server ends a stream

    Milliseconds sweep{500};        ///< how often deadlines are looked at
    Milliseconds acceptPause{100};  ///< when descriptors have run out
};

}  // namespace KxNTamberWebApi
