/* HTTP and HTTPS transfers through libcurl: a blocking request with retries
 * and a cancellable download driven on the caller's thread.
 *
 * Both requests send a GET, or a POST when `post` is not null, over HTTP/1.1
 * with the User-Agent "libcurl-agent/1.0". HTTPS peers are verified against
 * the fixed CA bundle "/etc/ssl/certs/ca-certificates.crt". A URL that does
 * not begin with "http://" or "https://" (any case) gets "https://" put in
 * front. Redirects are not followed and an HTTP error status is no failure:
 * a 404 comes back as a record like a 200. The status code reaches the caller
 * only as the status line inside `header`.
 *
 * `headers` is request headers separated by CR and LF. The call cuts that
 * string up in place: afterwards every CR and LF in it is a zero byte, also
 * when the request fails.
 *
 * Requests may run on several threads at once; the first running request
 * initialises libcurl and the last one to end cleans it up. */
#ifndef KU_HTTPS_H
#define KU_HTTPS_H

#include <stddef.h>
#include <stdint.h>
#include <stdio.h>

#include "ku/export.h"

KU_BEGIN_DECLS

/* Result of both requests, owned by the caller until HttpsFreeResponse. */
typedef struct HttpsResponse {
    char *header;         /* every response header byte, status lines and line
                             ends included, then a zero byte; null when none
                             arrived */
    size_t header_length; /* bytes in header without the zero byte */
    char *body;           /* the body, then a zero byte; may hold zero bytes
                             itself; null when the body was empty or went to a
                             file */
    size_t body_length;   /* bytes in body without the zero byte; with a save
                             file, the bytes written to it */
} HttpsResponse;

/* Settings of HttpsRequestNonBlock, filled in by the caller. */
typedef struct HttpsOption {
    /* Asked with cancel_arg at the head of every pass of the transfer loop,
     * the first time before any network activity; non-zero cancels. May be
     * null. */
    int (*cancel_test)(void *cancel_arg);
    void *cancel_arg;
    /* Called after every write to the save file with the two words and the
     * percentage done_size * 100 / total_size, rounded down, not capped at
     * 100, also when unchanged. Its result is ignored. May be null; never
     * called when the body goes to memory or total_size is 0. */
    int (*progress)(uintptr_t progress_arg1, uintptr_t progress_arg2, int percent);
    uintptr_t progress_arg1;
    uintptr_t progress_arg2;
    uint32_t total_size;   /* expected body size; 0 turns counting off */
    uint32_t done_size;    /* bytes written to the file so far; never cleared
                              by the request, so set it to 0 first */
    const char *save_path; /* file receiving the body, or null for memory */
    FILE *file;            /* set by the request when save_path is used; a
                              closed stream once the call has returned */
    int32_t time_limit;    /* whole-transfer limit in seconds; 0 or negative
                              ends the transfer after its first wait */
} HttpsOption;

/* Runs one transfer to its end on the calling thread. `timeout` limits each
 * attempt in seconds (0 or negative: 15); the connection phase has 30 seconds
 * whatever `timeout` is. A time-out, an unresolvable name, a refused
 * connection or a failed TLS handshake is tried again, 3 attempts in all, so
 * one call can block three times `timeout`; the bytes of a failed attempt are
 * dropped before the next one. With `save_path` the file is created or
 * truncated first and receives the body; `body` is then null and
 * `body_length` the bytes written. Returns a new record, or null on failure
 * with "HttpsRequest failed, res=N" (libcurl's code) or "HttpsRequest create
 * PATH failed" on stderr; a failed save file keeps what reached it. Free the
 * record with HttpsFreeResponse. */
KU_API HttpsResponse *HttpsRequest(const char *url, char *headers, const char *post,
                                   const char *save_path, int timeout) KU_NOEXCEPT;

/* Frees header, body and the record. Null is ignored. */
KU_API void HttpsFreeResponse(HttpsResponse *response) KU_NOEXCEPT;

/* Runs one transfer on the calling thread in a loop that asks
 * option->cancel_test at the head of every pass and ends the transfer when the
 * whole seconds of the monotonic clock have advanced by option->time_limit
 * (an error line "download timeout after N seconds" in the log). Checks
 * happen only as often as libcurl's wait returns. `option` may be null: no
 * cancel test, body in memory, 15 seconds. One attempt, no retry.
 * Returns null when cancelled (what reached the save file stays) or when
 * set-up failed ("HttpsRequestNonBlock create PATH failed" or
 * "HttpsRequestNonBlock curl_multi_init failed" on stderr). A transfer that
 * failed or ran out of time still gives a record with whatever arrived:
 * compare body_length with the size you expected and read the status line.
 * Free the record with HttpsFreeResponse. */
KU_API HttpsResponse *HttpsRequestNonBlock(const char *url, char *headers, const char *post,
                                           HttpsOption *option) KU_NOEXCEPT;

KU_END_DECLS

#endif /* KU_HTTPS_H */
