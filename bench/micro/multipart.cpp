// Finding the file in a form that is uploaded, in pieces as they come from the network.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <string>
#include <string_view>

#include "platform/web_api/http/multipart_reader.h"

namespace {

constexpr std::size_t FILE_SIZE = 4 * 1024 * 1024;

class CountingSink final : public KxNTamberWebApi::MultipartFileSink {
public:
    bool onFileBegin(const std::string&, const std::string&, const std::string&) override { return true; }
    bool onFileData(std::string_view data) override {
        size += data.size();
        return true;
    }
    bool onFileEnd() override { return true; }

    std::size_t size = 0;
};

/// `period` is the line length of the file: each line end looks like the begin of a boundary.
std::string form(std::size_t period) {
    std::string file(FILE_SIZE, 'x');
    for (std::size_t at = period; at + 1 < file.size(); at += period) {
        file[at] = '\r';
        file[at + 1] = '\n';
    }
    return "--boundary\r\nContent-Disposition: form-data; name=\"file\"; filename=\"image.tar\"\r\n\r\n" + file +
           "\r\n--boundary--\r\n";
}

void readForm(benchmark::State& state) {
    const std::string body = form(static_cast<std::size_t>(state.range(1)));
    const auto piece = static_cast<std::size_t>(state.range(0));
    for (auto _ : state) {
        CountingSink sink;
        KxNTamberWebApi::MultipartReader reader("boundary", sink);
        for (std::size_t at = 0; at < body.size(); at += piece) {
            reader.feed(std::string_view(body).substr(at, piece));
        }
        if (sink.size != FILE_SIZE) {
            state.SkipWithError("the file was not found");
        }
    }
    state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(body.size()));
}
BENCHMARK(readForm)->ArgNames({"piece", "line"})->ArgsProduct({{1500, 65536, 262144}, {80, 1 << 20}});

}  // namespace
