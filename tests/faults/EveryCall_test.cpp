#include <gtest/gtest.h>

#include <cstdlib>
#include <map>
#include <nlohmann/json.hpp>
#include <tuple>

#include "Drive.h"
#include "Plan.h"
#include "Scenes.h"
#include "Stated.h"

namespace {

using faults::Drive;
using faults::Fault;

/// Slices run side by side; each takes its share of the plan.
constexpr unsigned kSlices = 4;

/// One fault in so many is tried: VELCAM_FAULT_SHARE=N; all with VELCAM_LONG=1.
unsigned share()
{
    constexpr unsigned long kUsual = 40;
    constexpr unsigned long kSanitized = 240;
    constexpr int kDecimal = 10;
    if (support::isLong()) {
        return 1;
    }
    const char* given = std::getenv("VELCAM_FAULT_SHARE");  // NOLINT(concurrency-mt-unsafe): nobody sets it
    const unsigned long asked = given == nullptr ? 0 : std::strtoul(given, nullptr, kDecimal);
    return static_cast<unsigned>(asked != 0 ? asked : scenes::kSlowness == 1 ? kUsual : kSanitized);
}

class EveryCall : public testing::TestWithParam<std::tuple<std::string, unsigned>> {
protected:
    static const std::string& cpu() { return std::get<0>(GetParam()); }
    static unsigned slice() { return std::get<1>(GetParam()); }

    std::vector<Fault> plan()
    {
        const auto result = drive_.run({"--cpu", cpu(), "--list-calls"});
        EXPECT_EQ(faults::judge({"none", "none", faults::When::kFirst, 1, "EINTR"}, result),
                  std::vector<std::string>())
            << result.output << result.errors;
        return faults::planOf(result.report.callTargets());
    }

    void attempt(const Fault& fault)
    {
        const auto result = drive_.run({"--cpu", cpu(), "--fault", fault.rule()});
        ++tried_;
        if (result.status && result.report.faultsFired() == 0) {
            ++outcomes_["did not come up"];
            return;
        }
        const auto complaints = faults::judge(fault, result);
        ++outcomes_[complaints.empty() ? faults::nameOf(faults::effectOf(result)) : "defect"];
        std::string all;
        for (const std::string& complaint : complaints) {
            all += "\n  " + complaint;
        }
        EXPECT_TRUE(complaints.empty()) << fault.rule() << all << "\n" << result.output << result.errors;
    }

    /// One line for a machine.
    void sumUp(size_t planned) const
    {
        const nlohmann::json summary{{"cpu", cpu()},
                                     {"slice", slice()},
                                     {"planned", planned},
                                     {"tried", tried_},
                                     {"outcomes", outcomes_}};
        std::printf("FAULTS %s\n", summary.dump().c_str());
    }

    Drive drive_{PLAYER};
    unsigned tried_ = 0;
    std::map<std::string, unsigned> outcomes_;
};

TEST_P(EveryCall, CrashesHangsLeaksOrStaysSilentWhenItFails)
{
    const auto all = plan();
    constexpr size_t kAtLeast = 200;
    EXPECT_GT(all.size(), kAtLeast) << "the board listed too little";
    size_t planned = 0;
    for (const Fault& fault : all) {
        if (fault.lot() % kSlices != slice()) {
            continue;
        }
        ++planned;
        if (fault.lot() / kSlices % share() == 0) {
            attempt(fault);
        }
    }
    sumUp(planned);
}

INSTANTIATE_TEST_SUITE_P(On, EveryCall,
                         testing::Combine(testing::Values("quad", "dual-lite"), testing::Range(0U, kSlices)),
                         [](const auto& chosen) {
                             std::string name = std::get<0>(chosen.param);
                             name.erase(std::remove(name.begin(), name.end(), '-'), name.end());
                             return name + std::to_string(std::get<1>(chosen.param));
                         });

}  // namespace
