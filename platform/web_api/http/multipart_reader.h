// A reader for multipart/form-data bodies (RFC 7578, RFC 2046) that arrive in pieces of any size.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace KxNTamberWebApi {

/// Takes the one file of a form. Each call may answer false, after which the reader stops and calls nothing any more.
class MultipartFileSink {
public:
    virtual ~MultipartFileSink() = default;

    /// The file begins. The texts are valid during the call; `contentType` is empty when the part names none.
    virtual bool onFileBegin(const std::string& fieldName, const std::string& fileName,
                             const std::string& contentType) = 0;

    /// The next bytes of the file, never empty. They lie in the piece given to `feed`, except for at most the length of
    /// a boundary that turned out to be none.
    virtual bool onFileData(std::string_view data) = 0;

    /// The file is complete.
    virtual bool onFileEnd() = 0;
};

/// Finds the file of a form: the first part that has a file name. Other fields are skipped; a second file is an error.
/// Memory is bounded by the limits below, whatever arrives. One thread at a time.
class MultipartReader {
public:
    static constexpr std::size_t MAXIMUM_HEADER_BLOCK = 8 * 1024;
    static constexpr std::size_t MAXIMUM_PARTS = 1000;
    static constexpr std::size_t MAXIMUM_PREAMBLE = 64 * 1024;

    enum class Status {
        more,     ///< the body is not complete
        done,     ///< the closing boundary was read; what follows is skipped
        failed,   ///< the body is malformed: see `error`
        stopped,  ///< the sink answered false
    };

    /// `boundary` is the parameter of the content type, 1 to 70 characters. `sink` outlives the reader.
    MultipartReader(std::string_view boundary, MultipartFileSink& sink);

    /// Takes the next piece of the body and gives the status after it.
    Status feed(std::string_view piece);

    /// To be called when the body has ended: turns `more` into `failed`, since the closing boundary is missing.
    Status finish();

    Status status() const { return current; }
    /// True once a file has begun.
    bool hasFile() const { return sawFile; }
    /// What is wrong with a body that failed.
    const std::string& error() const { return errorText; }

private:
    enum class State { preamble, content, afterBoundary, headers };

    std::string_view takeContent(std::string_view piece);
    std::string_view takeAfterBoundary(std::string_view piece);
    std::string_view takeHeaders(std::string_view piece);
    void passContent(std::string_view data);
    void endPart();
    void beginPart();
    void fail(std::string text);

    std::string delimiter;  // "\r\n--" and the boundary
    MultipartFileSink& sink;
    State state = State::preamble;
    Status current = Status::more;
    std::size_t matched;        // how much of the delimiter the pieces so far end with
    std::size_t matchedBefore;  // how much of that stands before the content, where it belongs to something else
    std::string line;           // what was read of the line after a boundary, or of a header block
    std::size_t preambleSize = 0;
    std::size_t parts = 0;
    bool inFile = false;
    bool sawFile = false;
    std::string errorText;
};

}  // namespace KxNTamberWebApi
