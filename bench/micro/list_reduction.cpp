// Podman's container list on its way to the answer.
#include <benchmark/benchmark.h>

#include <string>

#include "KxJson.h"
#include "KxJsonText.h"
#include "platform/json/json_text.h"

namespace {

constexpr const char* KEYS[] = {"Id", "Names", "Image", "Created", "State"};

std::string podmansList(std::int64_t count) {
    const std::string identity(64, 'a');
    const KxNJson::json endpoint = {{"NetworkID", "podman"}, {"Gateway", "10.88.0.1"}, {"IPAddress", "10.88.0.7"}};
    const KxNJson::json record = {{"Id", identity},
                                  {"Names", {"/container"}},
                                  {"Image", "localhost/web:1"},
                                  {"ImageID", "sha256:" + identity},
                                  {"Command", "sh -c sleep 1000"},
                                  {"Created", 1700000000},
                                  {"Ports", KxNJson::json::array()},
                                  {"Labels", {{"com.example.unit", "unit"}, {"com.example.role", "worker"}}},
                                  {"State", "running"},
                                  {"Status", "Up 3 hours"},
                                  {"NetworkSettings", {{"Networks", {{"podman", endpoint}}}}},
                                  {"Mounts", KxNJson::json::array()}};
    return KxNJson::json(static_cast<std::size_t>(count), record).dump();
}

void reduceList(benchmark::State& state) {
    const std::string list = podmansList(state.range(0));
    for (auto _ : state) {
        KxNJson::json selection;
        std::string reason;
        if (!KxNJson::selectKeys(list, KEYS, selection, reason)) {
            state.SkipWithError(reason.c_str());
        }
        benchmark::DoNotOptimize(KxNJson::makeJsonText(selection));
    }
    state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(list.size()));
}
BENCHMARK(reduceList)->RangeMultiplier(10)->Range(10, 10000);

}  // namespace
