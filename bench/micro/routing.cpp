// What a request costs before its operation runs: finding the endpoint, reading parameters, comparing the token.
#include <benchmark/benchmark.h>

#include <string>

#include "api/endpoints.h"
#include "platform/web_api/access/token_file.h"
#include "platform/web_api/routing/router.h"

using namespace KxNTamberWebApi;

namespace {

void route(benchmark::State& state, const char* method, const char* target) {
    const Router router(KxNCre::ENDPOINTS, "/api/cre/v1.0", "/api/cre/{version}");
    RouteMatch match;  // as a connection keeps it from one request to the next
    for (auto _ : state) {
        router.route(method, target, match);
        benchmark::DoNotOptimize(match.values());
    }
}
BENCHMARK_CAPTURE(route, plain, "GET", "/api/cre/v1.0/settings");
BENCHMARK_CAPTURE(route, oneQuery, "GET", "/api/cre/v1.0/containers?all=true");
BENCHMARK_CAPTURE(route, nameAndQuery, "POST", "/api/cre/v1.0/containers/web-frontend/stop?timeout=10");
BENCHMARK_CAPTURE(route, escapedLog, "GET",
                  "/api/cre/v1.0/containers/web%20front/logs/ws?stdout=true&since=1700000000&tail=100");
BENCHMARK_CAPTURE(route, restOfPath, "DELETE", "/api/cre/v1.0/images/localhost/team/web:1.2");
BENCHMARK_CAPTURE(route, unknown, "GET", "/api/cre/v1.0/nothing/here");

void compareToken(benchmark::State& state) {
    const std::string token(64, 'a');
    const TokenVerifier verifier(token);
    for (auto _ : state) {
        benchmark::DoNotOptimize(verifier.matches(token));
    }
}
BENCHMARK(compareToken);

}  // namespace
