#include "platform/web_api/http/request_buffer.h"

#include <algorithm>
#include <cstring>

namespace KxNTamberWebApi {

std::span<char> RequestBuffer::prepare() {
    if (begin == end) {
        begin = end = 0;
    }
    if (end == capacity && begin > 0) {
        std::memmove(data.get(), data.get() + begin, end - begin);
        end -= begin;
        begin = 0;
    } else if (end == capacity && capacity < LARGE_SIZE) {
        const std::size_t grown = capacity == 0 ? SMALL_SIZE : LARGE_SIZE;
        std::unique_ptr<char[]> larger(new char[grown]);
        std::copy_n(data.get(), end, larger.get());
        data = std::move(larger);
        capacity = grown;
    }
    return {data.get() + end, capacity - end};
}

void RequestBuffer::consume(std::size_t size) {
    begin += size;
    searched = 0;
}

void RequestBuffer::shrink() {
    if (begin == end) {
        data.reset();
        capacity = begin = end = 0;
    }
}

RequestBuffer::Head RequestBuffer::findHead(std::size_t lineLimit, std::size_t blockLimit, std::size_t& headSize) {
    while (begin < end && searched == 0 && (data[begin] == '\r' || data[begin] == '\n')) {
        ++begin;
    }
    const std::string_view text = pending();
    const std::size_t found = text.find("\r\n\r\n", searched);
    searched = text.size() < 3 ? 0 : text.size() - 3;
    const std::size_t lineEnd = text.substr(0, lineLimit + 2).find("\r\n");
    if (lineEnd == text.npos) {
        return text.size() > lineLimit + 1 ? Head::lineTooLong : Head::incomplete;
    }
    const std::size_t block = (found == text.npos ? text.size() : found) - lineEnd;
    if (block > blockLimit) {
        return Head::blockTooLong;
    }
    headSize = found + 4;
    return found == text.npos ? Head::incomplete : Head::complete;
}

}  // namespace KxNTamberWebApi
