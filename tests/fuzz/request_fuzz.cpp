#include <cassert>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

#include "request_judge.h"
#include "sqlite_store.h"

namespace {

using namespace collector;

Json::Int64 rows_in(report_store& store, const char* table) {
    return store.rows(std::string("SELECT count(*) AS rows FROM ") + table, {})[0]["rows"]
        .asInt64();
}

unsigned count(const Json::Value& codes, int wanted) {
    unsigned found = 0;
    for (const Json::Value& code : codes) {
        found += code == wanted ? 1 : 0;
    }
    return found;
}

}  // namespace

// Input: the body of a request, to both endpoints. Once the form is right, the store has to
// take it, once.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string body(reinterpret_cast<const char*>(data), size);
    // Making a store takes longer than a run. It must not grow without end either.
    static std::optional<sqlite_store> store;
    static unsigned runs = 0;
    if (runs++ % 1000 == 0) {
        store.emplace("");
    }
    const Json::Int64 reports = rows_in(*store, "reports"), pairs = rows_in(*store, "pairs");
    request_judge judge(*store, {});
    judge.decide(endpoint::CHECK_HASHES, "", body, {});
    const decision first = judge.decide(endpoint::REPORTS, "", body, {});
    const decision again = judge.decide(endpoint::REPORTS, "", body, {});
    assert(first.status == 200 || (first.status == 400 && first.codes.empty()));
    assert(first.codes == again.codes && first.status == again.status);
    const unsigned taken = count(first.codes, 200);
    assert(taken + count(first.codes, 400) == (first.status == 200 ? first.entries : 0));
    assert(first.done.kept + first.done.repeated == taken);
    assert(again.done.kept == 0 && again.done.repeated == taken);
    assert(rows_in(*store, "reports") == reports + first.done.kept);
    assert(rows_in(*store, "pairs") == pairs + first.done.kept);
    return 0;
}
