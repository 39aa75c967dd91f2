// ku clock: the library's clocks as a script or a person on the device sees
// them: monotonic ticks in four units, and calendar time in UTC and in a
// zone given in hours.
#include <ku/clock.h>

#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <string>

#include "cli.h"
#include "commands.h"

namespace ku_tool {
namespace {

constexpr const char *kHelp =
    "usage: ku clock [--zone HOURS]\n"
    "\n"
    "Prints the library's clocks, one per line:\n"
    "  monotonic_s, monotonic_ms, monotonic_us, monotonic_ns   the tick clocks\n"
    "  utc       seconds since the epoch, then the UTC date and time\n"
    "  local     with --zone: utc shifted by HOURS (such as 5.5 or -3), as the\n"
    "            library computes it (single precision: steps of 128 s)\n";

std::string calendar(int64_t seconds)
{
    const time_t timer = static_cast<time_t>(seconds);
    ku_tm tm{};
    ku_gm_time(&timer, &tm);
    char text[64];
    std::snprintf(text, sizeof text, "%04d-%02d-%02d %02d:%02d:%02d", tm.tm_year, tm.tm_mon, tm.tm_mday,
                  tm.tm_hour, tm.tm_min, tm.tm_sec);
    return text;
}

}  // namespace

int run_clock(int argc, char **argv)
{
    if (wants_help(argc, argv))
        return print_help(kHelp);
    const auto args = parse_args("clock", argc, argv, {{"--zone", "", true}});
    if (!args)
        return kExitUsage;
    if (!args->positional.empty())
        return usage_error("clock", "takes no arguments besides --zone");
    float zone = 0;
    const auto zone_text = args->value("--zone");
    if (zone_text) {
        char *end = nullptr;
        zone = std::strtof(zone_text->c_str(), &end);
        if (zone_text->empty() || *end != '\0' || zone < -24 || zone > 24)
            return usage_error("clock", "--zone takes hours from -24 to 24");
    }
    // Read in order, finest last, so the lines never run backwards.
    const int64_t seconds = ku_second_ticks();
    const int64_t milliseconds = ku_ms_ticks();
    const int64_t microseconds = ku_us_ticks();
    const int64_t nanoseconds = ku_ns_ticks();
    std::string out = "monotonic_s " + std::to_string(seconds) + "\n" + "monotonic_ms " +
                      std::to_string(milliseconds) + "\n" + "monotonic_us " + std::to_string(microseconds) +
                      "\n" + "monotonic_ns " + std::to_string(nanoseconds) + "\n";
    const int64_t utc = ku_utc_time();
    out += "utc " + std::to_string(utc) + " " + calendar(utc) + "\n";
    if (zone_text) {
        const int64_t local = ku_local_time(zone);
        out += "local " + std::to_string(local) + " " + calendar(local) + "\n";
    }
    return write_all(stdout, out) ? kExitOk : fail("clock", "cannot write stdout");
}

}  // namespace ku_tool
