// The bytes that a client has sent and nobody has taken yet.
#pragma once

#include <cstddef>
#include <memory>
#include <span>
#include <string_view>

namespace KxNTamberWebApi {

/// Holds memory only while it holds bytes, and much of it only while a head is long, so that an idle connection costs
/// little.
class RequestBuffer {
public:
    enum class Head { incomplete, complete, lineTooLong, blockTooLong };

    /// Room for more bytes; none when the buffer holds more than any head may be long. Views given out before become
    /// invalid.
    std::span<char> prepare();
    void commit(std::size_t size) { end += size; }
    std::string_view pending() const { return {data.get() + begin, end - begin}; }
    void consume(std::size_t size);
    /// Gives the memory back when nothing is pending.
    void shrink();

    /// Looks whether a whole head is there; `headSize` then becomes its size with the empty line. Empty lines before a
    /// request are dropped.
    Head findHead(std::size_t lineLimit, std::size_t blockLimit, std::size_t& headSize);

private:
    static constexpr std::size_t SMALL_SIZE = 2 * 1024;
    static constexpr std::size_t LARGE_SIZE = 32 * 1024;

    std::unique_ptr<char[]> data;
    std::size_t capacity = 0;
    std::size_t begin = 0;
    std::size_t end = 0;
    std::size_t searched = 0;  // bytes of `pending` in which no end of a head was found
};

}  // namespace KxNTamberWebApi
