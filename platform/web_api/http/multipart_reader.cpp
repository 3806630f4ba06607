#include "platform/web_api/http/multipart_reader.h"

#include <algorithm>
#include <cstring>
#include <optional>
#include <utility>

#include "platform/common/text.h"
#include "platform/web_api/http/content_disposition.h"
#include "platform/web_api/http/header_parameters.h"

namespace KxNTamberWebApi {

namespace {

constexpr std::string_view LINE_END = "\r\n";
constexpr std::size_t MAXIMUM_PADDING = 64;  // blanks that may follow a boundary on its line

struct PartHeaders {
    std::string contentDisposition;
    std::string contentType;
    std::string transferEncoding;
};

/// Reads the header fields of a part, each with its line end; false when a line is no field.
bool parseHeaders(std::string_view block, PartHeaders& headers) {
    std::string* last = nullptr;
    while (!block.empty()) {
        const std::size_t end = block.find(LINE_END);
        const std::string_view text = block.substr(0, end);
        block.remove_prefix(end + LINE_END.size());
        if (KxNCommon::holdsControl(text, "\t")) {
            return false;
        }
        if (text.front() == ' ' || text.front() == '\t') {  // the line before goes on
            if (last != nullptr) {
                last->append(" ").append(KxNCommon::trim(text));
            }
            continue;
        }
        const std::size_t colon = text.find(':');
        if (colon == 0 || colon == std::string_view::npos) {
            return false;
        }
        const std::string_view name = KxNCommon::trim(text.substr(0, colon));
        last = equalsIgnoringCase(name, "content-disposition")         ? &headers.contentDisposition
               : equalsIgnoringCase(name, "content-type")              ? &headers.contentType
               : equalsIgnoringCase(name, "content-transfer-encoding") ? &headers.transferEncoding
                                                                       : nullptr;
        if (last != nullptr) {
            *last = KxNCommon::trim(text.substr(colon + 1));
        }
    }
    return true;
}

bool leavesBytesAsTheyAre(std::string_view transferEncoding) {
    return transferEncoding.empty() || equalsIgnoringCase(transferEncoding, "binary") ||
           equalsIgnoringCase(transferEncoding, "8bit") || equalsIgnoringCase(transferEncoding, "7bit");
}

}  // namespace

MultipartReader::MultipartReader(std::string_view boundary, MultipartFileSink& fileSink)
    : delimiter("\r\n--" + std::string(boundary)),
      sink(fileSink),
      matched(LINE_END.size()),  // a boundary that begins the body needs no line end before it
      matchedBefore(matched) {}

MultipartReader::Status MultipartReader::feed(std::string_view piece) {
    while (!piece.empty() && current == Status::more) {
        switch (state) {
            case State::preamble:
            case State::content:
                piece = takeContent(piece);
                break;
            case State::afterBoundary:
                piece = takeAfterBoundary(piece);
                break;
            case State::headers:
                piece = takeHeaders(piece);
                break;
        }
    }
    return current;
}

MultipartReader::Status MultipartReader::finish() {
    if (current == Status::more) {
        fail("The multipart body ends without its closing boundary");
    }
    return current;
}

std::string_view MultipartReader::takeContent(std::string_view piece) {
    if (matched > 0) {
        const std::size_t count = std::min(delimiter.size() - matched, piece.size());
        if (std::memcmp(delimiter.data() + matched, piece.data(), count) != 0) {
            // The delimiter begins with its only CR, so what had matched holds no other beginning of one.
            const std::string_view held = std::string_view(delimiter).substr(0, std::exchange(matched, 0));
            passContent(held.substr(std::exchange(matchedBefore, 0)));
            return piece;
        }
        matched += count;
        piece.remove_prefix(count);
    } else if (const void* found = memmem(piece.data(), piece.size(), delimiter.data(), delimiter.size())) {
        const auto before = static_cast<std::size_t>(static_cast<const char*>(found) - piece.data());
        passContent(piece.substr(0, before));
        matched = delimiter.size();
        piece.remove_prefix(before + matched);
    } else {
        // The end of the piece may be the beginning of a delimiter.
        const std::size_t tail = piece.size() - std::min(piece.size(), delimiter.size() - 1);
        std::size_t begin = piece.find('\r', tail);
        while (begin != std::string_view::npos &&
               piece.substr(begin) != std::string_view(delimiter).substr(0, piece.size() - begin)) {
            begin = piece.find('\r', begin + 1);
        }
        passContent(piece.substr(0, begin));
        matched = begin == std::string_view::npos ? 0 : piece.size() - begin;
        return {};
    }
    if (matched == delimiter.size() && current == Status::more) {
        matched = 0;
        matchedBefore = 0;
        endPart();
        state = State::afterBoundary;
    }
    return piece;
}

void MultipartReader::passContent(std::string_view data) {
    if (state == State::preamble) {
        preambleSize += data.size();
        if (preambleSize > MAXIMUM_PREAMBLE) {
            fail("The multipart body does not begin with the boundary that Content-Type names");
        }
    } else if (inFile && !data.empty() && current == Status::more && !sink.onFileData(data)) {
        current = Status::stopped;
    }
}

void MultipartReader::endPart() {
    if (std::exchange(inFile, false) && !sink.onFileEnd()) {
        current = Status::stopped;
    }
}

std::string_view MultipartReader::takeAfterBoundary(std::string_view piece) {
    while (!piece.empty()) {
        line += piece.front();
        piece.remove_prefix(1);
        const std::string_view text = KxNCommon::trim(line);
        if (text == LINE_END) {
            line.clear();
            state = State::headers;
            return piece;
        }
        if (line == "--") {
            current = Status::done;
            return {};
        }
        if ((!text.empty() && text != "\r" && line != "-") || line.size() > MAXIMUM_PADDING) {
            fail("A boundary of the multipart body is followed by other text on its line");
            return {};
        }
    }
    return piece;
}

std::string_view MultipartReader::takeHeaders(std::string_view piece) {
    constexpr std::string_view blockEnd = "\r\n\r\n";
    // The end may lie across the cut; a block without any field is an empty line alone.
    const std::size_t before = line.size();
    const std::size_t searchFrom = before < blockEnd.size() ? 0 : before - (blockEnd.size() - 1);
    line += piece.substr(0, std::min(piece.size(), MAXIMUM_HEADER_BLOCK + blockEnd.size() - before));
    const bool isEmptyBlock = line.compare(0, LINE_END.size(), LINE_END) == 0;
    const std::size_t end = isEmptyBlock ? 0 : line.find(blockEnd, searchFrom);
    if (end == std::string::npos) {
        if (line.size() >= MAXIMUM_HEADER_BLOCK + blockEnd.size()) {  // no sooner: its end may just be arriving
            fail("A header block in the multipart body is longer than " + std::to_string(MAXIMUM_HEADER_BLOCK) +
                 " bytes");
        }
        return {};
    }
    const std::size_t blockSize = end + (isEmptyBlock ? LINE_END.size() : blockEnd.size());
    line.resize(isEmptyBlock ? 0 : end + LINE_END.size());
    state = State::content;
    matched = matchedBefore = LINE_END.size();  // a part without content may have its boundary right here
    beginPart();
    line.clear();
    return piece.substr(blockSize - before);
}

void MultipartReader::beginPart() {
    if (++parts > MAXIMUM_PARTS) {
        return fail("The multipart body has more than " + std::to_string(MAXIMUM_PARTS) + " parts");
    }
    PartHeaders headers;
    if (!parseHeaders(line, headers)) {
        return fail("A header line in the multipart body cannot be parsed");
    }
    if (headers.contentDisposition.empty()) {
        return;
    }
    const std::optional<ContentDisposition> disposition =
        parseContentDisposition(headers.contentDisposition, errorText);
    if (!disposition) {
        current = Status::failed;
        return;
    }
    if (disposition->fileName.empty()) {
        return;
    }
    if (std::exchange(sawFile, true)) {
        return fail("The multipart body holds more than one file");
    }
    if (!leavesBytesAsTheyAre(headers.transferEncoding)) {
        return fail("The file in the multipart body has a Content-Transfer-Encoding that is not supported");
    }
    inFile = true;
    if (!sink.onFileBegin(disposition->fieldName, disposition->fileName, headers.contentType)) {
        current = Status::stopped;
    }
}

void MultipartReader::fail(std::string text) {
    current = Status::failed;
    errorText = std::move(text);
}

}  // namespace KxNTamberWebApi
