/* Publication of mDNS services through the outside tools mdnsd and dns-sd.
 *
 * Each call formats one shell command line and runs it with system(); the
 * library keeps no state and a published service is found again in the
 * process list. Arguments go into the command lines as they stand, neither
 * quoted nor checked: pass plain tokens. Command lines longer than 255
 * characters are refused with an error line in the log.
 *
 * Threads: no shared state and no locks; the calls may run on several threads
 * at once, and each blocks its caller until the shell has returned. */
#ifndef KU_MDNS_H
#define KU_MDNS_H

#include "ku/export.h"

KU_BEGIN_DECLS

/* Runs "kill -9 $(pidof mdnsd) 2&>1 > /dev/null", then "mdnsd", and gives
 * the second system() result; an mdnsd already running is replaced. Beware:
 * a POSIX shell reads "2&>1" as an argument "2" and a background "&", so the
 * first command also sends SIGKILL to process 2 and creates a file named "1"
 * in the working directory. */
KU_API int ku_mdnsd_init(void) KU_NOEXCEPT;

/* Runs the kill command of ku_mdnsd_init alone and gives its system()
 * result. */
KU_API int ku_mdnsd_destroy(void) KU_NOEXCEPT;

/* Starts "dns-sd -R name type domain port txt &" (flag 'R', register) or
 * "dns-sd -B  type domain   &" (flag 'B', browse) in the background.
 * 'R' needs name, type, domain and port; a null txt is the empty string.
 * 'B' needs type; name, port and txt are ignored and a null domain is the
 * empty string, so the command keeps runs of blanks. Another flag, a missing
 * argument or a command over 255 characters runs nothing and logs an error
 * line. Whether the tool succeeded is not known. */
KU_API void ku_mdns_service_register(char flag, const char *name, const char *type,
                                     const char *domain, const char *port,
                                     const char *txt) KU_NOEXCEPT;

/* Kills (SIGKILL) every process whose "ps -ef" line holds "dns-sd -<flag>"
 * and `match`: a null or empty match ends every dns-sd of that flag. A flag
 * of 0 stands for a blank. Logs the command at debug level first; a command
 * over 255 characters runs nothing and logs an error line. Relies on "ps -ef"
 * printing the process id in its first column, as BusyBox's does. */
KU_API void ku_mdns_service_deregister(char flag, const char *match) KU_NOEXCEPT;

KU_END_DECLS

#endif /* KU_MDNS_H */
