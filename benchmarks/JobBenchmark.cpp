/// How fast does the dictionary map values to dense IDs, and IDs to values, compared with other maps that do the same
/// work?
///
/// Names are WORKLOAD/CONTESTANT/threads:N. Times are wall time; the counter cpu_ns is processor time per operation.

#include "core/platform/system/Unmovable.h"
#include "support/Keys.h"
#include "support/PeerMaps.h"
#include "support/Scale.h"
#include "support/Store.h"
#include "support/Timing.h"

#include <benchmark/benchmark.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <string>
#include <vector>

namespace kavix::benchmarks {

/// The values of a workload, kept until another one needs the memory, so that the contestants of one process share
/// them.
template<typename Key>
const std::vector<Key>& getKeys(const std::string& name, const std::function<std::vector<Key>()>& make) {
    static std::string s_name;
    static std::vector<Key> s_keys;
    if (s_name != name) {
        s_keys = {};
        s_keys = make();
        s_name = name;
    }
    return s_keys;
}

template<typename Key>
struct Workload {

    enum class Kind { GROWING, PRESIZED, PRESENT, ABSENT };

    std::string m_name;
    Kind m_kind;
    size_t m_numberOfValues; // distinct ones that are inserted
    std::function<std::vector<Key>()> m_makeEntered;
    std::function<std::vector<Key>(const std::vector<Key>&)>
        m_makeLookedUp; // for PRESENT and ABSENT, from the inserted values
};

/// Frees the map that lookup workloads share, so that no workload runs while the memory of another one is in use.
std::function<void()> s_discardFilled = [] {};

/// Passes the keys of a thread to a session, batch by batch; returns how many IDs were not 0.
template<typename Session, typename Key>
size_t run(Session& session, std::span<const Key> keys, bool isLookup) {
    std::array<uint64_t, BATCH_SIZE> resourceIDs;
    size_t found = 0;
    for (size_t first = 0; first < keys.size(); first += BATCH_SIZE) {
        const std::span<const Key> batch = keys.subspan(first, std::min(BATCH_SIZE, keys.size() - first));
        if (isLookup)
            session.tryResolve(batch, resourceIDs.data());
        else
            session.resolve(batch, resourceIDs.data());
        for (size_t index = 0; index < batch.size(); ++index)
            found += resourceIDs[index] != 0;
    }
    return found;
}

/// The map that holds the values of a lookup workload.
template<typename Map, typename Key>
Map& getFilled(const Workload<Key>& workload, const std::vector<Key>& entered) {
    static std::unique_ptr<Map> s_map;
    static std::string s_name;
    const std::string name = workload.m_name.substr(workload.m_name.find('_') + 1);
    if (s_map == nullptr || s_name != name) {
        s_discardFilled();
        warmMemory(entered.size() * 64);
        s_map = std::make_unique<Map>(entered.size(), 0);
        typename Map::Session session(*s_map);
        run(session, std::span(entered), false);
        s_name = name;
        s_discardFilled = [] { s_map.reset(); };
    }
    return *s_map;
}

template<typename Map, typename Key>
void runWorkload(benchmark::State& state, const Workload<Key>& workload, size_t numberOfThreads) {
    using Kind = typename Workload<Key>::Kind;
    const bool isLookup = workload.m_kind == Kind::PRESENT || workload.m_kind == Kind::ABSENT;
    for (auto _ : state) {
        std::unique_ptr<Map> fresh;
        Map* map;
        const std::vector<Key>* keys;
        std::vector<Key> lookedUp;
        if (isLookup) {
            const std::vector<Key>& entered = getKeys<Key>(
                "entered_" + workload.m_name.substr(workload.m_name.find('_') + 1), workload.m_makeEntered);
            map = &getFilled<Map>(workload, entered);
            lookedUp = workload.m_makeLookedUp(entered);
            keys = &lookedUp;
        }
        else {
            s_discardFilled();
            keys = &getKeys<Key>(workload.m_name, workload.m_makeEntered);
            warmMemory(workload.m_numberOfValues * 96);
            fresh = std::make_unique<Map>(
                workload.m_numberOfValues, workload.m_kind == Kind::PRESIZED ? workload.m_numberOfValues : 0);
            map = fresh.get();
        }
        std::atomic<size_t> found = 0;
        const Duration duration = runThreads(numberOfThreads, [&](size_t threadIndex) {
            const size_t first = keys->size() * threadIndex / numberOfThreads;
            const size_t last = keys->size() * (threadIndex + 1) / numberOfThreads;
            // On the heap, because it is aligned to cache lines that no other thread may share.
            return
                [&, part = std::span<const Key>(*keys).subspan(first, last - first),
                 session = std::make_shared<typename Map::Session>(*map)] { found += run(*session, part, isLookup); };
        });
        if (found != (workload.m_kind == Kind::ABSENT ? 0 : keys->size()))
            state.SkipWithError("wrong IDs");
        state.SetIterationTime(duration.m_wallSeconds);
        state.SetItemsProcessed(static_cast<int64_t>(keys->size()));
        state.counters["cpu_ns"] = duration.m_processorSeconds * 1e9 / static_cast<double>(keys->size());
    }
}

template<typename Map, typename Key>
void registerContestant(const char* contestant, const std::vector<Workload<Key>>& workloads) {
    for (const Workload<Key>& workload : workloads)
        for (const size_t numberOfThreads : {size_t(1), size_t(2)})
            if (numberOfThreads == 1 || !Map::ONE_THREAD_ONLY)
                benchmark::RegisterBenchmark(
                    (workload.m_name + '/' + contestant + "/threads:" + std::to_string(numberOfThreads)).c_str(),
                    [&workload, numberOfThreads](benchmark::State& state) {
                        runWorkload<Map>(state, workload, numberOfThreads);
                    })
                    ->Iterations(1)
                    ->UseManualTime()
                    ->Unit(benchmark::kMillisecond);
}

template<typename Key>
void registerContestants(const std::vector<Workload<Key>>& workloads) {
    registerContestant<KavixSingle<Key>>("kavix", workloads);
    registerContestant<KavixVirtual<Key>>("kavix-virtual", workloads);
    registerContestant<KavixBatched<Key>>("kavix-batched", workloads);
#ifdef KAVIX_HAS_ABSEIL
    registerContestant<AbseilAlone<Key>>("abseil-alone", workloads);
    registerContestant<AbseilBehindMutexes<Key>>("abseil-64-mutexes", workloads);
    registerContestant<AbseilBehindSpinLocks<Key>>("abseil-64-spin-locks", workloads);
#endif
#ifdef KAVIX_HAS_BOOST_FLAT_MAP
    registerContestant<BoostAlone<Key>>("boost-alone", workloads);
#endif
#ifdef KAVIX_HAS_XENIUM
    if constexpr (std::is_same_v<Key, int64_t>)
        registerContestant<XeniumMap>("xenium", workloads);
#endif
#ifdef KAVIX_HAS_TBB
    registerContestant<TBBMap<Key>>("tbb", workloads);
#endif
#ifdef KAVIX_HAS_LIBCUCKOO
    registerContestant<LibcuckooMap<Key>>("libcuckoo", workloads);
#endif
    registerContestant<StandardBehindMutex<Key>>("std-mutex", workloads);
}

/// ID to value and to lexical form: Kavix only, since with an array of values the only possible comparison is the
/// array.
enum class Reverse { VALUE, TEXT, ARRAY };

template<Reverse REVERSE>
void runReverse(benchmark::State& state, size_t numberOfValues, size_t numberOfReads) {
    const std::vector<int64_t>& entered =
        getKeys<int64_t>("entered_random", [=] { return makeKeys(numberOfValues, 0, makeRandomInteger); });
    for (auto _ : state) {
        s_discardFilled();
        KavixBatched<int64_t> map(numberOfValues, 0);
        KavixBatched<int64_t>::Session session(map);
        run(session, std::span(entered), false);
        std::vector<uint32_t> resourceIDs(numberOfReads);
        Random random(11);
        for (uint32_t& resourceID : resourceIDs)
            resourceID = static_cast<uint32_t>(1 + random.below(numberOfValues));
        const Duration duration = runThreads(1, [&](size_t) {
            return [&] {
                uint64_t sum = 0;
                ResourceValue value;
                std::string text;
                for (const uint32_t resourceID : resourceIDs)
                    if constexpr (REVERSE == Reverse::VALUE) {
                        map.m_dictionary.getResource(resourceID, D_XSD_INTEGER, value);
                        sum += value.getBinaryValue<uint64_t>();
                    }
                    else if constexpr (REVERSE == Reverse::TEXT) {
                        map.m_dictionary.getResource(resourceID, D_XSD_INTEGER, text);
                        sum += text.size();
                    }
                    else
                        sum += map.m_store.m_resourceData[resourceID];
                benchmark::DoNotOptimize(sum);
            };
        });
        state.SetIterationTime(duration.m_wallSeconds);
        state.SetItemsProcessed(static_cast<int64_t>(numberOfReads));
        state.counters["cpu_ns"] = duration.m_processorSeconds * 1e9 / static_cast<double>(numberOfReads);
    }
}

std::vector<Workload<int64_t>> makeIntegerWorkloads() {
    using Kind = Workload<int64_t>::Kind;
    const size_t values = scaled(10000000);
    const size_t lookups = scaled(20000000);
    const size_t streamValues = scaled(5000000);
    const size_t draws = scaled(50000000);
    // The lowest bits of such a product are zero and the bucket is taken from them: the work is quadratic, so few
    // values.
    const size_t multiples = std::min<size_t>(20000, values);
    const auto makeRandom = [=] { return makeKeys(values, 0, makeRandomInteger); };
    const auto makeSequential = [=] {
        return makeKeys(values, 1, [](uint64_t index) { return static_cast<int64_t>(index); });
    };
    const auto makeMultiples = [=] {
        return makeKeys(multiples, 1, [](uint64_t index) { return static_cast<int64_t>(index << 20); });
    };
    const auto draw = [=](const std::vector<int64_t>& entered) {
        return drawFrom(entered, std::min(lookups, entered.size() * 2));
    };
    return {
        {"growing_random", Kind::GROWING, values, makeRandom, {}},
        {"presized_random", Kind::PRESIZED, values, makeRandom, {}},
        {"present_random", Kind::PRESENT, values, makeRandom, draw},
        {"absent_random", Kind::ABSENT, values, makeRandom,
         [=](const std::vector<int64_t>&) { return makeKeys(lookups, values, makeRandomInteger); }},
        {"stream_zipf", Kind::GROWING, streamValues, [=] { return drawZipf(streamValues, 0.99, draws); }, {}},
        {"growing_sequential", Kind::GROWING, values, makeSequential, {}},
        {"present_sequential", Kind::PRESENT, values, makeSequential, draw},
        {"growing_multiples", Kind::GROWING, multiples, makeMultiples, {}},
        {"present_multiples", Kind::PRESENT, multiples, makeMultiples, draw},
    };
}

std::vector<Workload<XSDDecimal>> makeDecimalWorkloads() {
    using Kind = Workload<XSDDecimal>::Kind;
    const size_t values = scaled(10000000);
    const auto makePrices = [=] {
        auto prices = makeKeys(values, 1, makePrice);
        shuffle(prices);
        return prices;
    };
    return {
        {"growing_decimals", Kind::GROWING, values, makePrices, {}},
        {"present_decimals", Kind::PRESENT, values, makePrices,
         [](const std::vector<XSDDecimal>& entered) { return drawFrom(entered, 2 * entered.size()); }},
    };
}

}

int main(int argc, char** argv) {
    using namespace kavix::benchmarks;
    const auto integerWorkloads = makeIntegerWorkloads();
    const auto decimalWorkloads = makeDecimalWorkloads();
    registerContestants(integerWorkloads);
    registerContestants(decimalWorkloads);
    const size_t values = scaled(10000000);
    const size_t reads = scaled(20000000);
    const auto addReverse = [=](const char* name, void (*runReads)(benchmark::State&, size_t, size_t)) {
        benchmark::RegisterBenchmark(name, [=](benchmark::State& state) { runReads(state, values, reads); })
            ->Iterations(1)
            ->UseManualTime()
            ->Unit(benchmark::kMillisecond);
    };
    addReverse("reverse_value/kavix/threads:1", runReverse<Reverse::VALUE>);
    addReverse("reverse_text/kavix/threads:1", runReverse<Reverse::TEXT>);
    addReverse("reverse_value/array-alone/threads:1", runReverse<Reverse::ARRAY>);
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 1;
    benchmark::RunSpecifiedBenchmarks();
    s_discardFilled();
    return 0;
}
