// Both download windows: the schedule files as the pass's readers take them
// (children by position), the record "SchPatch.ini" keeps, the pass's own
// evaluation at the moment asked about, why not, and the next opening.
#include <cctype>
#include <cstdio>

#include "check/check_parts.h"
#include "config/ini.h"
#include "platform/automation.h"
#include "platform/host.h"
#include "schedule/schedule_settings.h"
#include "schedule/schedule_text.h"

namespace kpm::check {

using platform::DateTime;
using platform::Object;
using namespace schedule_text;

namespace {

// One schedule file as read: the six values with the names their elements
// carry in this file, for warnings that point at the right line.
struct Schedule {
    std::string fileName, path;
    bool present = false;
    std::string problem;  // why the pass's reader stops early
    std::string names[6], values[6];
    std::string vendors, gateway = "0";
    bool products = false;  // Microsoft: an upcls element names a product
    const std::string& type() const { return values[0]; }
    const std::string& dates() const { return values[1]; }
    const std::string& week() const { return values[2]; }
    const std::string& days() const { return values[3]; }
    const std::string& from() const { return values[4]; }
    const std::string& to() const { return values[5]; }
};

struct Pipeline {
    const char* title;       // "Microsoft window"
    const char* element;     // "autopatchdeploy"
    const char* section;     // "DowSchTime"
    int gatewayPosition;     // 28 / 20
    bool thirdParty;
};

std::vector<std::string> split(const std::string& s) {
    std::vector<std::string> parts(1);
    for (char c : s) {
        if (c == ',') parts.emplace_back();
        else parts.back() += c;
    }
    return parts;
}

// A whole number from lo to hi, digits only: the pass compares these lists as
// text, so " 3" or "03" never matches a day.
bool numberIn(const std::string& s, int lo, int hi) {
    if (s.empty() || s.size() > 2 || (s.size() == 2 && s[0] == '0')) return false;
    for (char c : s)
        if (!std::isdigit(static_cast<unsigned char>(c))) return false;
    const int v = std::stoi(s);
    return v >= lo && v <= hi;
}

bool listIn(const std::string& s, int lo, int hi) {
    for (const auto& piece : split(s))
        if (!numberIn(piece, lo, hi)) return false;
    return true;
}

bool isHhMm(const std::string& t) {
    return t.size() == 5 && std::isdigit(static_cast<unsigned char>(t[0])) &&
           std::isdigit(static_cast<unsigned char>(t[1])) && t[2] == ':' &&
           std::isdigit(static_cast<unsigned char>(t[3])) && std::isdigit(static_cast<unsigned char>(t[4])) &&
           std::stoi(t.substr(0, 2)) < 24 && std::stoi(t.substr(3)) < 60;
}

std::string child(Object& element, int index, std::string* name = nullptr) {
    Object node = element.obj("childNodes").obj("item", index);
    if (!node) throw platform::ComError(91, "kpmdwld-check", "no child at position " + std::to_string(index));
    if (name) *name = node.get("nodeName").toString();
    return node.get("nodeTypedValue").toString();
}

Schedule readSchedule(const Pipeline& p, const std::string& fileName) {
    Schedule s;
    s.fileName = fileName;
    s.path = AppPath() + "\\" + fileName;
    const std::string shortPath = ProgramFolderShort() + "\\" + fileName;
    s.present = platform::files().fileExists(shortPath);
    if (!s.present) return s;
    int position = 0;
    try {
        Object doc = platform::automation().createObject("MSXML2.DOMDocument");
        doc.put("async", false);  // as the pass loads it: read at once
        doc.call("Load", shortPath);
        if (doc.obj("childNodes").get("length").toLong() < 1) {
            s.problem = "it does not read as XML";
            return s;
        }
        std::vector<platform::Variant> elements = doc.call("getElementsByTagName", p.element).toObject().items();
        if (elements.empty()) {
            s.problem = std::string("it has no <") + p.element + "> element";
            return s;
        }
        Object element = elements.front().toObject();
        for (position = 0; position < 6; ++position) s.values[position] = child(element, position, &s.names[position]);
        if (p.thirdParty) {
            position = 19;
            s.vendors = child(element, 19);
        }
        const std::string xpath = std::string("//") + p.element + "/AlwaysDwnldGateway";
        if (doc.get("selectSingleNode", xpath).dispatch()) {
            position = p.gatewayPosition;
            s.gateway = child(element, p.gatewayPosition);
            if (s.gateway.empty()) s.gateway = "0";
        }
        if (!p.thirdParty)
            for (const auto& u : doc.call("getElementsByTagName", "upcls").toObject().items())
                if (!u.toObject().obj("Attributes").obj("item", 2).get("nodeValue").toString().empty())
                    s.products = true;
    } catch (const std::exception&) {
        s.problem = std::string("its <") + p.element + "> has no child at position " + std::to_string(position) +
                    ": the pass's reader stops there";
    }
    return s;
}

std::string plural(int weekday) { return WeekdayName(weekday) + "s"; }

std::string ordinal(const std::string& n) {
    if (n == "1") return "1st";
    if (n == "2") return "2nd";
    if (n == "3") return "3rd";
    return n + "th";
}

// "Tuesdays 09:00-10:00", as an administrator would say the schedule.
std::string describe(const Schedule& s) {
    const std::string type = Trim(s.type());
    std::string days;
    if (type == "1" || type == "3") {
        if (listIn(s.days(), 1, 7)) {
            for (const auto& d : split(s.days())) days += (days.empty() ? "" : ", ") + plural(std::stoi(d));
        } else {
            days = "week days \"" + s.days() + "\"";
        }
    } else if (type == "2") {
        const std::string weekday = numberIn(s.days(), 1, 7) ? WeekdayName(std::stoi(s.days())) : "\"" + s.days() + "\"";
        if (!s.dates().empty()) days = "days " + s.dates() + " of the month";
        else if (s.week() == "0") days = "the last " + weekday + " of the month";
        else if (s.week() == "5") days = "the 5th " + weekday + " of the month (else the month's last day)";
        else days = "the " + ordinal(s.week()) + " " + weekday + " of the month";
    } else if (type == "4") {
        return "not configured (schedule type 4)";
    } else {
        days = "every day (schedule type \"" + s.type() + "\")";
    }
    return days + " " + s.from() + "-" + s.to();
}

void warnValues(Report& report, const Schedule& s) {
    auto warn = [&](int position, const std::string& what) {
        report.warnings.push_back("<" + s.names[position] + ">" + s.values[position] + "</" + s.names[position] +
                                  "> in " + s.path + ": " + what);
    };
    const std::string type = Trim(s.type());
    if (type != "1" && type != "2" && type != "3" && type != "4")
        warn(0, "the schedule type is not 1, 2, 3 or 4: only the time decides");
    if ((type == "1" || type == "3") && !listIn(s.days(), 1, 7))
        warn(3, "week days must be numbers from 1 (Sunday) to 7 (Saturday), comma-separated without blanks "
                "(Tuesday is 3): the window never opens");
    if (type == "2" && !s.dates().empty() && !listIn(s.dates(), 1, 31))
        warn(1, "month dates must be numbers from 1 to 31, comma-separated without blanks: those days never come");
    if (type == "2" && s.dates().empty()) {
        if (!numberIn(s.week(), 0, 5) && s.week() != "0")
            warn(2, "the week of the month must be 0 (last) or 1 to 5: the window never opens");
        if (!numberIn(s.days(), 1, 7))
            warn(3, "a monthly weekday schedule needs one week day, a number from 1 (Sunday) to 7 (Saturday)");
    }
    for (int position : {4, 5})
        if (!isHhMm(s.values[position]))
            warn(position, "times must be HH:MM, two digits each, 24-hour clock (the pass compares them as text)");
    if (isHhMm(s.from()) && s.from() == s.to())
        warn(5, "the window has no length (from and to are both " + s.from() + "): it never opens");
}

std::string decisionAt(CheckHost& host, const Schedule& s, const DateTime& at) {
    host.setNow(at);
    std::string from = s.from(), to = s.to(), days = s.days(), type = s.type(), dates = s.dates(), week = s.week();
    return GetScheduleDecision(from, to, days, type, dates, week);
}

DateTime atHhMm(const DateTime& day, const std::string& hhmm) {
    DateTime t = dateOnly(day);
    t.hour = std::stoi(hhmm.substr(0, 2));
    t.minute = std::stoi(hhmm.substr(3));
    return t;
}

// The window is open from a second past its from time: the first such
// moment after `now` on which the pass's evaluation says "Y".
std::string nextOpening(CheckHost& host, const Schedule& s, const DateTime& now) {
    if (!isHhMm(s.from()) || !isHhMm(s.to())) return "never (the times are not HH:MM)";
    for (int d = 0; d <= 400; ++d) {
        const DateTime start = atHhMm(platform::addDays(now, d), s.from());
        if (start <= now) continue;
        if (decisionAt(host, s, platform::addSeconds(start, 1)) == "Y") return DateText(start);
    }
    return "none in the next 400 days";
}

std::string whyNot(CheckHost& host, const Schedule& s, const DateTime& now) {
    if (s.from().empty() || s.to().empty()) return "no from or to time";
    if (!isHhMm(s.from()) || !isHhMm(s.to())) return "the times are not HH:MM";
    if (s.from() == s.to()) return "the window has no length";
    const DateTime start = atHhMm(now, s.from());
    if (decisionAt(host, s, platform::addSeconds(start, 1)) == "Y")
        return now <= start ? "before today's window" : "after today's window";
    return WeekdayName(platform::weekday(now)) + " " + DateText(now).substr(4, 10) + " is not a scheduled day";
}

// What "SchPatch.ini" decides before the schedule file is read, as the
// pass's window check does (read-only here: it never clears "LDwnRDate").
struct Stored {
    bool decides = false;  // the record closes the pipeline for this pass
    std::string text;
};

Stored storedWindow(const Pipeline& p, Section& out, const DateTime& now) {
    const std::string ini = ProgramFolderShort() + "\\SchPatch.ini";
    if (!platform::files().fileExists(ini)) {
        out.add("SchPatch.ini", "none: this is a first pass, the schedule file decides");
        return {};
    }
    auto key = [&](const char* k) { return fncReadINI(p.section, k, ini); };
    const std::string dt = key("Dt"), from = key("FTIME"), to = key("ToTime"), last = key("LDwnRDate");
    out.add("SchPatch.ini [" + std::string(p.section) + "]",
            "DT=" + dt + " FTIME=" + from + " ToTime=" + to + " LDwnRDate=" + last);
    if (dt.empty()) return {false, "no date recorded: the schedule file decides"};
    try {
        const DateTime day = parseIniDate(dt);
        if (day != dateOnly(now)) return {false, "recorded on another day: the schedule file decides"};
        DateTime start, end;
        if (from > to) {
            if (now.hour * 100 + now.minute > textToNumber(removeColons(from))) {
                start = atTimeOfDay(day, from);
                end = atTimeOfDay(platform::addDays(day, 1), to);
            } else {
                start = atTimeOfDay(platform::addDays(day, -1), from);
                end = atTimeOfDay(day, to);
            }
        } else {
            start = atTimeOfDay(day, from);
            end = atTimeOfDay(day, to);
        }
        if (!(start < now && now < end))
            return {true, "outside the window recorded today (" + from + "-" + to + ")"};
        if (!last.empty() && last.substr(0, last.find(' ')) == dateMmddyyyy(now))
            return {true, "already downloaded in this window (LDwnRDate " + last + ")"};
        return {false, last.empty() ? "inside the recorded window, nothing downloaded yet"
                                    : "inside the recorded window; the download of another day is cleared"};
    } catch (const std::exception&) {
        return {true, "the record's date or times do not read: the pass's window check stops there"};
    }
}

std::string checkOne(CheckHost& host, Report& report, const Pipeline& p, const std::string& fileName,
                     const DateTime& now, Schedule& s) {
    Section& out = report.section(p.title);
    s = readSchedule(p, fileName);
    out.add("file", s.path + (s.present ? "" : " (missing)"));
    const Stored stored = storedWindow(p, out, now);
    if (!stored.text.empty()) out.add("record says", stored.text);
    if (stored.decides) return "closed: " + stored.text;
    if (!s.present) return p.thirdParty ? "does not run: no " + fileName + " for today" : "does not run: no " + fileName;
    if (!s.problem.empty()) {
        report.warnings.push_back(s.path + ": " + s.problem);
        return "does not run: " + fileName + " " + s.problem;
    }
    static const char* labels[6] = {"type", "month dates", "month week", "week days", "from", "to"};
    for (int i = 0; i < 6; ++i) out.add(labels[i] + std::string(" (<") + s.names[i] + ">)", s.values[i]);
    out.add("gateway only", s.gateway);
    if (p.thirdParty) out.add("selected vendors", s.vendors);
    warnValues(report, s);

    const std::string schedule = describe(s);
    out.add("schedule", schedule);
    const bool inside = decisionAt(host, s, now) == "Y";
    host.setNow(now);
    out.add("at " + DateText(now), inside ? "inside" : "outside");
    if (!inside) {
        const std::string why = whyNot(host, s, now), next = nextOpening(host, s, now);
        host.setNow(now);
        out.add("why not", why);
        out.add("next opening", next);
        return "outside (" + schedule + "): " + why + "; next opening " + next;
    }
    if (Trim(s.type()) == "4") return "not configured (schedule type 4)";
    if (!p.thirdParty && !s.products)
        return "inside (" + schedule + "), but no product is configured (no upcls names one)";
    return "inside (" + schedule + ")";
}

}  // namespace

std::string CheckWindows(CheckHost& host, Report& report) {
    const DateTime now = platform::clock().now();
    static const Pipeline ms{"Microsoft window", "autopatchdeploy", "DowSchTime", 28, false};
    static const Pipeline tp{"Third-party window", "autothirdpatchdeploy", "TPDowSchTime", 20, true};
    Schedule msSchedule, tpSchedule;
    report.summary.push_back("Microsoft window: " + checkOne(host, report, ms, "MSUpd.xml", now, msSchedule));
    const std::string today = "Autosch_" + dateDdmmyyyy(now) + ".xml";
    report.summary.push_back("Third-party window: " + checkOne(host, report, tp, today, now, tpSchedule));

    // The pass reads only today's file: another day's is never looked at.
    try {
        for (const auto& name : platform::files().listFiles(ProgramFolderShort()))
            if (name.size() > 8 && platform::iequals(name.substr(0, 8), "Autosch_") && LCase(name) != LCase(today))
                report.warnings.push_back(AppPath() + "\\" + name + " is for another day than today (" +
                                          dateDdmmyyyy(now) + "): the pass reads only " + today);
    } catch (const std::exception&) {
    }
    return tpSchedule.vendors;
}

}  // namespace kpm::check
