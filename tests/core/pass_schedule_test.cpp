// Consecutive passes through the download windows: what the driver runs,
// logs and stamps in each.
#include <gtest/gtest.h>

#include "support/test_machine.h"

using kpmtest::at;
using kpmtest::TestMachine;

namespace {

const std::string kFolder = kpmtest::kProgramFolder;

// A schedule element with `children` positions: type 1 (weekday list) on the
// given days, 16:00 to 17:00.
std::string scheduleXml(const char* root, const char* element, const char* days, int children) {
    const char* values[] = {"1", "", "0", days, "16:00", "17:00"};
    std::string xml = std::string("<") + root + "><" + element + ">";
    for (int i = 0; i < children; ++i) xml += "<c" + std::to_string(i) + ">" + (i < 6 ? values[i] : "") + "</c" + std::to_string(i) + ">";
    xml += std::string("</") + element + ">";
    if (std::string(element) == "autopatchdeploy") xml += "<upcls a=\"Security Updates\" b=\"BL\" c=\"Windows 7\"/>";
    return xml + "</" + root + ">";
}

// The driver's own entries and the schedule verdicts of a pass (file contents
// and start-up lines left out).
std::vector<std::string> driverView(const TestMachine& m, size_t from) {
    std::vector<std::string> out;
    auto all = m.logMessages();
    for (size_t i = from; i < all.size(); ++i) {
        const std::string& e = all[i];
        if (e.find("|Main|") != std::string::npos || e.find("|fncCheckTime") != std::string::npos ||
            e.find("|fncWebPost|") != std::string::npos || e.find("|CloseAll|") != std::string::npos ||
            e.find("Selected vendors") != std::string::npos)
            out.push_back(e.substr(e.find('|', e.find('|') + 1) + 1));  // drop module and procedure
    }
    return out;
}

}  // namespace

TEST(PassSchedule, ADayOfPassesThroughBothWindows) {
    TestMachine m;
    m.writeFile(kFolder + "\\MSUpd.xml", scheduleXml("patchmanagement", "autopatchdeploy", "1,4", 29));
    m.writeFile(kFolder + "\\Autosch_15112026.xml", scheduleXml("thirdpartypatch", "autothirdpatchdeploy", "1", 21));
    // A file for another day does not count.
    m.writeFile(kFolder + "\\Autosch_14112026.xml", scheduleXml("thirdpartypatch", "autothirdpatchdeploy", "1", 21));
    const std::string sch = kFolder + "\\SchPatch.ini";

    // First pass of the day, inside both windows: both schedules are read and
    // stamped (a second after the start: the component check sleeps one).
    ASSERT_EQ(m.runPass(at("2026-11-15T16:10:00")), 0);
    EXPECT_EQ(driverView(m, 0), (std::vector<std::string>{
                                    "INFO|5.0.19|||",
                                    "INFO|Unable to download Black List file|||",
                                    "INFO|-----------------------------------------------------|||",
                                    "INFO|--------Check for Third Party Update Download -------|||",
                                    "INFO|Selected vendors are : |||",
                                    "INFO|Application stopped.|||",
                                }));
    std::string ini = m.read(sch);
    EXPECT_NE(ini.find("[DowSchTime]\r\nFTIME=16:00\r\nToTime=17:00\r\nScheduleType=1\r\nMonthDateValue=\r\n"
                       "MonthWeekValue=0\r\nDT=2026-11-15\r\nLDwnRDate=11/15/2026 16:10:01\r\n"),
              std::string::npos) << ini;
    EXPECT_NE(ini.find("[TPDowSchTime]"), std::string::npos);

    // Later in the same window: today's download is done. The third-party
    // check closes the pass down at once.
    size_t before = m.logMessages().size();
    ASSERT_EQ(m.runPass(at("2026-11-15T16:30:00")), 0);
    EXPECT_EQ(driverView(m, before), (std::vector<std::string>{
                                         "INFO|5.0.19|||",
                                         "INFO|Agent time is the patch download time.|||",
                                         "INFO|Agent last patch download check time, 11/15/2026 16:10:01|||",
                                         "INFO|-----------------------------------------------------|||",
                                         "INFO|--------Check for Third Party Update Download -------|||",
                                         "INFO|Agent time is the patch download time.|||",
                                         "INFO|Agent last patch download check time, 11/15/2026 16:10:01|||",
                                         "INFO|Application stopped.|||",
                                     }));

    // After the window: nothing runs and nothing is stamped.
    before = m.logMessages().size();
    ASSERT_EQ(m.runPass(at("2026-11-15T18:00:00")), 0);
    EXPECT_EQ(driverView(m, before),
              (std::vector<std::string>{
                  "INFO|5.0.19|||",
                  "INFO|Agent time is not in patch download time or download has been done for the day, "
                  "11/15/2026 16:10:01|||",
                  "INFO|-----------------------------------------------------|||",
                  "INFO|--------Check for Third Party Update Download -------|||",
                  "INFO|Agent time is not in patch download time or download has been done for the day, "
                  "11/15/2026 16:10:01|||",
                  "INFO|Application stopped.|||",
              }));
    EXPECT_EQ(m.read(sch), ini);

    // Next day, a Monday: the record is refreshed, Microsoft is not due, and
    // there is no third-party schedule for the day.
    before = m.logMessages().size();
    ASSERT_EQ(m.runPass(at("2026-11-16T16:10:00")), 0);
    EXPECT_EQ(driverView(m, before),
              (std::vector<std::string>{
                  "INFO|5.0.19|||",
                  "INFO|Download is not configured or the time has not come: N|||",
                  "INFO|-----------------------------------------------------|||",
                  "INFO|--------Check for Third Party Update Download -------|||",
                  "INFO|Third Party Configuration File not found, Autosch_16112026.xml|||",
                  "INFO|Application stopped.|||",
              }));
    EXPECT_NE(m.read(sch).find("DT=2026-11-16\r\nLDwnRDate=11/15/2026 16:10:01"), std::string::npos)
        << "no new stamp when Microsoft was not due";
}
