/* Resident memory that libku adds to an application. Built twice from this
 * file: "footprint" calls one function of each family, "footprint_baseline"
 * (KU_FOOTPRINT_BASELINE) is the same program without the library. Each
 * prints two figures in KiB:
 *   vm_rss    the kernel's VmRSS of the process (under qemu-user: qemu's own);
 *   mapped    pages of the process's own mappings that are in memory, from
 *             /proc/self/maps and mincore(); qemu-user answers both for the
 *             emulated process, so this one also holds on the emulator. It
 *             counts shared library pages that another process brought in;
 *   libku     the same, for the mappings of libku.so alone. */
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mman.h>
#include <unistd.h>

#ifndef KU_FOOTPRINT_BASELINE
#include <arpa/inet.h>

#include <ku.h>

static void use_every_family(void)
{
    ku_trace("footprint: %lld ms\n", (long long)ku_ms_ticks()); /* log, clocks */

    pthread_mutex_t *lock = kulock_init(); /* threads and locks */
    kulock_deinit(lock);

    char text[] = "footprint";
    strupr(text); /* strings */

    char base64[16];
    ku_string_base64_encode(base64, text, 3); /* hex and Base64 */

    static const unsigned char key[24] = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12,
                                          13, 14, 15, 16, 17, 18, 19, 20, 21, 22, 23, 24};
    unsigned char block[8] = {0};
    ku_des_encode3(key, block, 8, block); /* Triple DES */

    membuffer buffer;
    membuffer_init(&buffer); /* growable buffer */
    membuffer_destroy(&buffer);

    circle_buf_free(circle_buf_init(64));         /* ring buffer */
    dynamic_mem_free(dynamic_mem_init(64, 4096)); /* reassembly cache */
    ku_list_deinit(ku_list_init());               /* FIFO list */

    (void)json_buf_get_int("{\"footprint\": 1}", "footprint"); /* JSON */

    (void)GetIniKeyInt("section", "key", "/nonexistent/footprint.ini"); /* INI */
    kutable *table = kutable_load("/nonexistent/footprint.table");       /* tables */
    if (table != NULL) {
        kutable_close(table);
    }

    (void)ku_is_local_ip(htonl(INADDR_LOOPBACK)); /* interface queries */

    int pipe_ends[2];
    if (pipe(pipe_ends) == 0) { /* sockets (fcntl part) */
        ku_sock_non_blocking(pipe_ends[0]);
        close(pipe_ends[0]);
        close(pipe_ends[1]);
    }

    /* mDNS: an unknown flag runs no command, only logs. */
    ku_mdns_service_register('?', "footprint", "_x._tcp", "local", "1", NULL);

    HttpsFreeResponse(NULL); /* HTTP(S) */

    miniresample_deinit(miniresample_init(48000, 16000, 2, 0)); /* resampler */

    ku_plugin_destroy(ku_plugin_create("/nonexistent", "ku", "footprint")); /* plug-ins */

    /* Not called: the process lock, whose first call runs mknod for
     * /dev/plock as root and so changes the machine it runs on. */
}
#endif

static long vm_rss_kib(void)
{
    FILE *status = fopen("/proc/self/status", "r");
    if (status == NULL) {
        return -1;
    }
    char line[256];
    long kib = -1;
    while (fgets(line, sizeof line, status) != NULL) {
        if (strncmp(line, "VmRSS:", 6) == 0) {
            kib = strtol(line + 6, NULL, 10);
            break;
        }
    }
    fclose(status);
    return kib;
}

/* Resident KiB of the mappings whose line in /proc/self/maps holds `only`,
 * or of all mappings when `only` is null. */
static long mapped_resident_kib(const char *only)
{
    FILE *maps = fopen("/proc/self/maps", "r");
    if (maps == NULL) {
        return -1;
    }
    const long page = sysconf(_SC_PAGESIZE);
    static unsigned char vec[1 << 16];
    char line[512];
    long pages = 0;
    while (fgets(line, sizeof line, maps) != NULL) {
        unsigned long start = 0;
        unsigned long end = 0;
        if (sscanf(line, "%lx-%lx", &start, &end) != 2 || strstr(line, "[vsyscall]") != NULL ||
            (only != NULL && strstr(line, only) == NULL)) {
            continue;
        }
        for (unsigned long at = start; at < end;) {
            unsigned long count = (end - at) / (unsigned long)page;
            if (count > sizeof vec) {
                count = sizeof vec;
            }
            if (mincore((void *)at, count * (unsigned long)page, vec) == 0) {
                for (unsigned long i = 0; i < count; ++i) {
                    pages += vec[i] & 1;
                }
            }
            at += count * (unsigned long)page;
        }
    }
    fclose(maps);
    return pages * page / 1024;
}

int main(void)
{
#ifndef KU_FOOTPRINT_BASELINE
    use_every_family();
#endif
    printf("vm_rss %ld KiB, mapped %ld KiB, libku %ld KiB\n", vm_rss_kib(), mapped_resident_kib(NULL),
           mapped_resident_kib("/libku.so"));
    return 0;
}
