#include "platform/web_api/http/multipart_reader.h"

#include "tests/support.h"

using namespace KxNTests;
using KxNTamberWebApi::MultipartFileSink;
using KxNTamberWebApi::MultipartReader;

namespace {

/// Collects what the reader passes on, in one text.
struct Recorder : MultipartFileSink {
    bool onFileBegin(const std::string& fieldName, const std::string& fileName, const std::string& type) override {
        seen += "[" + fieldName + "|" + fileName + "|" + type + "]";
        return stopAt != 'b';
    }
    bool onFileData(std::string_view data) override {
        EXPECT_FALSE(data.empty());
        seen += data;
        return stopAt != 'd';
    }
    bool onFileEnd() override {
        seen += "[end]";
        return stopAt != 'e';
    }

    std::string seen;
    char stopAt = ' ';
};

const char* const statusNames[] = {"more", "done", "failed", "stopped"};

/// What a body gives when it arrives in pieces of `size` bytes: what was passed on, the status, and the error.
std::string read(const std::string& body, std::size_t size) {
    Recorder recorder;
    MultipartReader reader("XX", recorder);
    for (std::size_t begin = 0; begin < body.size(); begin += size) {
        reader.feed(body.substr(begin, size));  // a copy of its own, so that overreads show
    }
    const auto status = reader.finish();
    return recorder.seen + " " + statusNames[static_cast<int>(status)] +
           (reader.error().empty() ? "" : ": " + reader.error());
}

const std::string fileHeaders = "Content-Disposition: form-data; name=\"f\"; filename=\"a.tar\"\r\n";
const std::string begin = "--XX\r\n" + fileHeaders + "Content-Type: application/x-tar\r\n\r\n";
const std::string tag = "[f|a.tar|application/x-tar]";
const std::string end = "\r\n--XX--\r\n";

TEST(MultipartReaderTest, GivesTheSameHoweverItIsCut) {
    const std::tuple<const char*, std::string, std::string> rows[] = {
        {"empty file", begin + end, tag + "[end] done"},
        {"preamble and epilogue", "pre\r\n--X\r\n" + begin + "d" + end + "--XX\r\n\r\nafter", tag + "d[end] done"},
        {"blanks after the boundary", "--XX \t\r\n" + fileHeaders + "\r\nd\r\n--XX--", "[f|a.tar|]d[end] done"},
        {"almost boundaries in the file", begin + "\r\n\r\r\n--X\r\n--\r\n-\r\n\r\n--XY--XX" + end,
         tag + "\r\n\r\r\n--X\r\n--\r\n-\r\n\r\n--XY--XX[end] done"},
        {"other fields around the file",
         "--XX\r\nContent-Disposition: form-data; name=\"note\"\r\n\r\ntext\r\n" + begin +
             "d\r\n--XX\r\nContent-Disposition: form-data; name=\"more\"\r\n\r\ntext" + end,
         tag + "d[end] done"},
        {"no file at all", "--XX\r\nContent-Disposition: form-data; name=\"n\"\r\n\r\ntext" + end, " done"},
        {"file field left empty by a browser",
         "--XX\r\nContent-Disposition: form-data; name=\"f\"; filename=\"\"\r\n\r\n" + end, " done"},
        {"headers in other case, folded, and one without use",
         "--XX\r\nX-Other: 1\r\n more\r\ncontent-DISPOSITION:form-data;\r\n\tname=f; filename=a.tar\r\n\r\nd" + end,
         "[f|a.tar|]d[end] done"},
        {"part without headers", "--XX\r\n\r\ntext\r\n" + begin + "d" + end, tag + "d[end] done"},
        {"second file", begin + "d\r\n" + begin + "e" + end,
         tag + "d[end] failed: The multipart body holds more than one file"},
        {"end inside the file", begin + "dat",
         tag + "dat failed: The multipart body ends without its closing boundary"},
        {"end inside the closing boundary", begin + "dat\r\n--XX-",
         tag + "dat[end] failed: The multipart body ends without its closing boundary"},
        {"text after a boundary", "--XXY\r\n" + fileHeaders + "\r\nd" + end,
         " failed: A boundary of the multipart body is followed by other text on its line"},
        {"line that is no header", "--XX\r\nrubbish\r\n\r\n",
         " failed: A header line in the multipart body cannot be parsed"},
        {"control character in a header", "--XX\r\nContent-Type: a\nb\r\n\r\n",
         " failed: A header line in the multipart body cannot be parsed"},
        {"encoded file", "--XX\r\n" + fileHeaders + "Content-Transfer-Encoding: base64\r\n\r\nZA==" + end,
         " failed: The file in the multipart body has a Content-Transfer-Encoding that is not supported"},
        {"unreadable disposition", "--XX\r\nContent-Disposition: form-data; filename=\"x\r\n\r\n",
         " failed: The Content-Disposition field cannot be parsed"}};
    for (const auto& [fault, text, expected] : rows) {
        SCOPED_TRACE(fault);
        for (std::size_t size = 1; size <= text.size(); ++size) {  // so that each place is cut at once
            ASSERT_EQ(read(text, size), expected) << size;
        }
    }
}

TEST(MultipartReaderTest, BoundsWhatItKeepsAndSkips) {
    const std::size_t most = MultipartReader::MAXIMUM_HEADER_BLOCK;
    const std::string tooLong = " failed: A header block in the multipart body is longer than 8192 bytes";
    for (const std::size_t size : {most, most + 1}) {
        const std::string body = "--XX\r\nX:" + std::string(size - 2, 'x') + "\r\n\r\n\r\n--XX--";
        for (std::size_t cut = size; cut < body.size(); ++cut) {
            EXPECT_EQ(read(body, cut), size == most ? " done" : tooLong) << cut;
        }
    }
    EXPECT_EQ(read(std::string(MultipartReader::MAXIMUM_PREAMBLE + 100, 'x'), 50),
              " failed: The multipart body does not begin with the boundary that Content-Type names");
    EXPECT_EQ(read("--XX" + std::string(100, ' '), 104),
              " failed: A boundary of the multipart body is followed by other text on its line");
    std::string parts;
    for (std::size_t i = 0; i <= MultipartReader::MAXIMUM_PARTS; ++i) {
        parts += "--XX\r\n\r\n\r\n";
    }
    EXPECT_EQ(read(parts, parts.size()), " failed: The multipart body has more than 1000 parts");
}

TEST(MultipartReaderTest, CallsNothingOnceTheSinkHasStoppedIt) {
    for (const auto& [stop, seen] : {std::pair('b', tag), {'d', tag + "d"}, {'e', tag + "d[end]"}}) {
        Recorder recorder;
        recorder.stopAt = stop;
        MultipartReader reader("XX", recorder);
        EXPECT_EQ(reader.feed(begin + "d" + end), MultipartReader::Status::stopped);
        EXPECT_EQ(reader.feed("more" + end), MultipartReader::Status::stopped);
        EXPECT_EQ(reader.finish(), MultipartReader::Status::stopped);
        EXPECT_EQ(recorder.seen, seen);
    }
}

}  // namespace
