// mDNS publication by shell command: format one line, run it with system().
// Nothing of the protocol lives here; a service is ended by finding its
// dns-sd process in the process list and killing it.
#include "ku/mdns.h"

#include <cstdarg>
#include <cstdio>
#include <cstdlib>

#include "ku/log.h"

namespace {

// Held as written, "2&>1" included: the daemon's users depend on this line.
constexpr const char *kKillDaemon = "kill -9 $(pidof mdnsd) 2&>1 > /dev/null";
constexpr const char *kStartDaemon = "mdnsd";
constexpr const char *kRegisterFormat = "dns-sd -%c %s %s %s %s %s &";
constexpr const char *kDeregisterFormat =
    "ps -ef|grep 'dns-sd -%c'|grep '%s'|grep -v 'grep'|awk '{print $1}'|xargs kill -9";

constexpr const char *kInvalidArguments = "Error: Invalid argument(s) for mdns registry\n";
constexpr const char *kMissingArguments = "Error: Missing argument(s) for mdns registry\n";
constexpr const char *kTooLong = "Error: arguments' length are too long\n";
constexpr const char *kDebugCommand = "[mdns] %s\n";

// Command lines of 255 characters fit with their terminator; longer ones are refused.
constexpr size_t kCommandRoom = 256;

struct Command {
    char text[kCommandRoom] = {};
};

// Formats into `command`; false (with the length line logged) when it does not fit.
__attribute__((format(printf, 2, 3))) bool format_command(Command &command, const char *format,
                                                          ...) noexcept
{
    va_list args;
    va_start(args, format);
    const int length = vsnprintf(command.text, sizeof command.text, format, args);
    va_end(args);
    if (length < 0 || static_cast<size_t>(length) >= sizeof command.text) {
        ku_err(kTooLong);
        return false;
    }
    return true;
}

const char *or_empty(const char *text) noexcept
{
    return text == nullptr ? "" : text;
}

}  // namespace

extern "C" {

KU_API int ku_mdnsd_init(void) noexcept
{
    (void)system(kKillDaemon);
    return system(kStartDaemon);
}

KU_API int ku_mdnsd_destroy(void) noexcept
{
    return system(kKillDaemon);
}

KU_API void ku_mdns_service_register(char flag, const char *name, const char *type,
                                     const char *domain, const char *port,
                                     const char *txt) noexcept
{
    if (flag != 'B' && flag != 'R') {
        ku_err(kInvalidArguments);
        return;
    }
    if (flag == 'R') {
        if (name == nullptr || type == nullptr || domain == nullptr || port == nullptr) {
            ku_err(kMissingArguments);
            return;
        }
        txt = or_empty(txt);
    } else {
        if (type == nullptr) {
            ku_err(kMissingArguments);
            return;
        }
        // Browsing takes only the type and the domain.
        name = "";
        port = "";
        txt = "";
        domain = or_empty(domain);
    }
    Command command;
    if (!format_command(command, kRegisterFormat, flag, name, type, domain, port, txt)) {
        return;
    }
    (void)system(command.text);
}

KU_API void ku_mdns_service_deregister(char flag, const char *match) noexcept
{
    if (flag == 0) {
        flag = ' ';
    }
    Command command;
    if (!format_command(command, kDeregisterFormat, flag, or_empty(match))) {
        return;
    }
    ku_debug(kDebugCommand, command.text);
    (void)system(command.text);
}

}  // extern "C"
