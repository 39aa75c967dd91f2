// Pieces shared by the blocking and the cancellable HTTPS request: the count
// of running requests, the URL and header-list set-up, the libcurl callbacks
// and the filling of the response record. Never installed.
#pragma once

#include <curl/curl.h>

#include <cstddef>
#include <cstdio>

#include "ku/https.h"
#include "ku/membuffer.h"

namespace ku_https {

// Counts this request among the running ones; the first initialises libcurl.
void curl_users_enter() noexcept;
// Ends this request's count; the last one cleans libcurl up.
void curl_users_leave() noexcept;

// The URL handed to libcurl: `url` itself when it names http or https, else
// a heap copy with "https://" in front (or `url` when that copy fails).
struct ChosenUrl {
    const char *text = nullptr;
    char *built = nullptr;
    explicit ChosenUrl(const char *url) noexcept;
    ~ChosenUrl() { release(); }
    ChosenUrl(const ChosenUrl &) = delete;
    ChosenUrl &operator=(const ChosenUrl &) = delete;
    void release() noexcept;
};

// Request headers cut out of the caller's string at every CR and LF (empty
// pieces included). `complete` is false when libcurl could not take a piece.
struct HeaderList {
    curl_slist *list = nullptr;
    bool complete = true;
    explicit HeaderList(char *headers) noexcept;
    ~HeaderList() { release(); }
    HeaderList(const HeaderList &) = delete;
    HeaderList &operator=(const HeaderList &) = delete;
    void release() noexcept;
};

// Response headers and body collected in memory.
struct Collected {
    membuffer header;
    membuffer body;
    Collected() noexcept;
    ~Collected();
    Collected(const Collected &) = delete;
    Collected &operator=(const Collected &) = delete;
    // Drops what a failed attempt delivered.
    void clear() noexcept;
};

// The record for what has arrived: header and body are taken over from
// `collected`, or with a save file body_length is the file's position, which
// counts only bytes that reached the file once it was flushed. Null when the
// record cannot be allocated.
HttpsResponse *make_response(Collected &collected, FILE *save_file) noexcept;

// Pushes what stdio still holds to the file; false when any write of the
// stream failed (a full file system, say), now or before.
bool flush_save_file(FILE *file) noexcept;

// The file that receives a body, closed on every path out of a request.
struct SaveFile {
    FILE *file = nullptr;
    char *buffer = nullptr;
    SaveFile() = default;
    ~SaveFile() { close(); }
    SaveFile(const SaveFile &) = delete;
    SaveFile &operator=(const SaveFile &) = delete;
    // Creates or truncates `path` (mode "w+"); on failure writes
    // "<who> create <path> failed" to stderr and gives false. `batched`
    // gives the stream a large buffer, for a writer that flushes only at
    // the end.
    bool open(const char *path, const char *who, bool batched) noexcept;
    // False when the close reported an error: bytes may be missing.
    bool close() noexcept;
};

// The options that follow the URL and HTTP version in both requests, in
// their order: peer verification against the bundle, DNS cache, connect
// time-out.
void set_peer_options(CURL *curl) noexcept;

// The closing options of both requests, in their order: the silent trace,
// the body's writer, the header collector, user agent, no signals, no
// verbose output, then the header list (when `headers` is not null) and the
// POST body (when `post` is not null).
void set_transfer_options(CURL *curl, unsigned char *trace_text, curl_write_callback write,
                          void *write_data, membuffer *header, const HeaderList *headers,
                          const char *post) noexcept;

// The libcurl callbacks.
size_t HttpsHeaderCallback(char *data, size_t size, size_t nmemb, void *user) noexcept;
size_t HttpsBodyCallback(char *data, size_t size, size_t nmemb, void *user) noexcept;
int HttpsTraceCallback(CURL *handle, curl_infotype type, char *data, size_t size,
                       void *user) noexcept;

}  // namespace ku_https
