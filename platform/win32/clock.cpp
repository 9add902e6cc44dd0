#include <windows.h>

#include "platform/clock.h"
#include "platform/win32/ansi.h"
#include "platform/win32/bindings.h"

namespace platform::win32 {

namespace {

class Win32Clock final : public Clock {
public:
    DateTime now() override {
        SYSTEMTIME st;
        GetLocalTime(&st);
        return DateTime{st.wYear, st.wMonth, st.wDay, st.wHour, st.wMinute, st.wSecond};
    }

    void sleep(uint32_t milliseconds) override { Sleep(milliseconds); }

    std::string generalDate(const DateTime& t) override {
        SYSTEMTIME st{};
        st.wYear = static_cast<WORD>(t.year);
        st.wMonth = static_cast<WORD>(t.month);
        st.wDay = static_cast<WORD>(t.day);
        st.wDayOfWeek = static_cast<WORD>(weekday(t) - 1);
        st.wHour = static_cast<WORD>(t.hour);
        st.wMinute = static_cast<WORD>(t.minute);
        st.wSecond = static_cast<WORD>(t.second);
        char date[128] = "", time[128] = "";
        GetDateFormatA(LOCALE_USER_DEFAULT, DATE_SHORTDATE, &st, nullptr, date, sizeof date);
        GetTimeFormatA(LOCALE_USER_DEFAULT, 0, &st, nullptr, time, sizeof time);
        return std::string(date) + " " + time;
    }

    // What the automation runtime's own conversion gives, in the user's locale.
    std::string dateText(const DateTime& t) override {
        BSTR text = nullptr;
        if (FAILED(VarBstrFromDate(toOleDate(t), LOCALE_USER_DEFAULT, 0, &text))) return generalDate(t);
        std::string out = fromBstr(text);
        SysFreeString(text);
        return out;
    }
};

}  // namespace

std::unique_ptr<Clock> newClock() { return std::make_unique<Win32Clock>(); }

}  // namespace platform::win32
