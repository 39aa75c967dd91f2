// Blocking HTTP/HTTPS request over libcurl's easy interface, plus the pieces
// it shares with the cancellable request. Every request owns its handles and
// buffers; the one shared value, the count of running requests, sits behind a
// mutex together with libcurl's global init and cleanup.
#include "net/https_internal.h"

#include <pthread.h>
#include <strings.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>

#include <unistd.h>

namespace ku_https {
namespace {

constexpr const char *kCaBundle = "/etc/ssl/certs/ca-certificates.crt";
constexpr const char *kUserAgent = "libcurl-agent/1.0";
constexpr const char *kCreateFailed = "%s create %s failed\n";
constexpr long kConnectTimeout = 30;
constexpr long kDnsCacheTimeout = 3600;
constexpr int kDefaultTimeout = 15;
constexpr int kAttempts = 3;
constexpr long kMaxConnects = 10;
constexpr long kServerResponseTimeout = 15;
constexpr const char *kFailed = "%s failed, res=%d\n";
constexpr const char *kName = "HttpsRequest";
// libcurl hands the body over in pieces of 16 KiB; a stdio buffer of this
// size turns them into a few large writes instead of one system call each.
constexpr size_t kSaveBuffer = 256 * 1024;

pthread_mutex_t curl_users_lock = PTHREAD_MUTEX_INITIALIZER;
int curl_users = 0;

struct MutexGuard {
    pthread_mutex_t *mutex;
    explicit MutexGuard(pthread_mutex_t *m) noexcept : mutex(m) { pthread_mutex_lock(mutex); }
    ~MutexGuard() { pthread_mutex_unlock(mutex); }
    MutexGuard(const MutexGuard &) = delete;
    MutexGuard &operator=(const MutexGuard &) = delete;
};

bool is_retried(CURLcode code) noexcept
{
    return code == CURLE_OPERATION_TIMEDOUT || code == CURLE_COULDNT_RESOLVE_HOST ||
           code == CURLE_COULDNT_CONNECT || code == CURLE_SSL_CONNECT_ERROR;
}

// Trace dump: one label per traced kind, null for kinds that are not printed.
const char *trace_label(curl_infotype type) noexcept
{
    switch (type) {
    case CURLINFO_HEADER_IN: return "<= Recv header";
    case CURLINFO_HEADER_OUT: return "=> Send header";
    case CURLINFO_DATA_IN: return "<= Recv data";
    case CURLINFO_DATA_OUT: return "=> Send data";
    case CURLINFO_SSL_DATA_IN: return "<= Recv SSL data";
    case CURLINFO_SSL_DATA_OUT: return "=> Send SSL data";
    default: return nullptr;
    }
}

bool is_crlf(const unsigned char *data, size_t size, size_t at) noexcept
{
    return at + 1 < size && data[at] == '\r' && data[at + 1] == '\n';
}

// Gives the save file back to its empty state for another attempt.
void rewind_save_file(FILE *file) noexcept
{
    fflush(file);
    rewind(file);
    if (ftruncate(fileno(file), 0) != 0) {
        // Not truncated: the next attempt still writes from the start.
    }
    // A write that failed for the dropped attempt says nothing about the next.
    clearerr(file);
}

}  // namespace

void curl_users_enter() noexcept
{
    MutexGuard guard(&curl_users_lock);
    if (curl_users == 0) {
        curl_global_init(CURL_GLOBAL_ALL);
    }
    ++curl_users;
}

void curl_users_leave() noexcept
{
    MutexGuard guard(&curl_users_lock);
    --curl_users;
    if (curl_users <= 0) {
        curl_global_cleanup();
    }
}

bool SaveFile::open(const char *path, const char *who, bool batched) noexcept
{
    file = fopen64(path, "w+");
    if (file == nullptr) {
        fprintf(stderr, kCreateFailed, who, path);
        return false;
    }
    if (!batched) {
        return true;
    }
    buffer = static_cast<char *>(malloc(kSaveBuffer));
    if (buffer != nullptr && setvbuf(file, buffer, _IOFBF, kSaveBuffer) != 0) {
        free(buffer);
        buffer = nullptr;
    }
    return true;
}

bool SaveFile::close() noexcept
{
    bool closed = true;
    if (file != nullptr) {
        closed = fclose(file) == 0;
        file = nullptr;
    }
    // The stream used the buffer up to its close.
    free(buffer);
    buffer = nullptr;
    return closed;
}

bool flush_save_file(FILE *file) noexcept
{
    return fflush(file) == 0 && ferror(file) == 0;
}

ChosenUrl::ChosenUrl(const char *url) noexcept : text(url)
{
    if (strncasecmp(url, "http://", 7) == 0 || strncasecmp(url, "https://", 8) == 0) {
        return;
    }
    if (asprintf(&built, "https://%s", url) < 0) {
        built = nullptr;
        return;
    }
    text = built;
}

void ChosenUrl::release() noexcept
{
    free(built);
    built = nullptr;
    text = nullptr;
}

HeaderList::HeaderList(char *headers) noexcept
{
    if (headers == nullptr) {
        return;
    }
    // strsep cuts the caller's string at every CR and LF; the pieces between
    // a CR LF pair are empty and go to libcurl too, which ignores them.
    char *rest = headers;
    for (char *token = strsep(&rest, "\r\n"); token != nullptr; token = strsep(&rest, "\r\n")) {
        if (!complete) {
            continue;  // keep cutting: the caller's string is cut whole
        }
        curl_slist *longer = curl_slist_append(list, token);
        if (longer == nullptr) {
            complete = false;
            continue;
        }
        list = longer;
    }
}

void HeaderList::release() noexcept
{
    curl_slist_free_all(list);
    list = nullptr;
}

Collected::Collected() noexcept
{
    membuffer_init(&body);
    membuffer_init(&header);
}

Collected::~Collected()
{
    membuffer_destroy(&body);
    membuffer_destroy(&header);
}

void Collected::clear() noexcept
{
    membuffer_destroy(&body);
    membuffer_destroy(&header);
}

HttpsResponse *make_response(Collected &collected, FILE *save_file) noexcept
{
    auto *response = static_cast<HttpsResponse *>(calloc(1, sizeof(HttpsResponse)));
    if (response == nullptr) {
        return nullptr;
    }
    // The collected blocks are handed over rather than copied: a body in
    // memory then costs its size once, not twice, at the end of a download.
    response->header_length = collected.header.length;
    if (response->header_length != 0) {
        response->header = membuffer_detach(&collected.header);
    }
    if (save_file != nullptr) {
        // The 64-bit call whatever the build's off_t, as the file was opened
        // with fopen64: a save file of 2 GiB or more keeps its length on a
        // 32-bit target. After a failed write stdio has dropped what it held,
        // so the position is what reached the file.
        flush_save_file(save_file);
        const off64_t position = ftello64(save_file);
        response->body_length = position > 0 ? static_cast<size_t>(position) : 0;
        if constexpr (sizeof(size_t) < sizeof(off64_t)) {
            // Past 4 GiB on a 32-bit target the length is no longer exact.
            if (static_cast<uint64_t>(position) > SIZE_MAX) {
                response->body_length = SIZE_MAX;
            }
        }
        return response;
    }
    response->body_length = collected.body.length;
    if (response->body_length != 0) {
        response->body = membuffer_detach(&collected.body);
    }
    return response;
}

void set_peer_options(CURL *curl) noexcept
{
    curl_easy_setopt(curl, CURLOPT_SSL_VERIFYPEER, 1L);
    curl_easy_setopt(curl, CURLOPT_CAINFO, kCaBundle);
    curl_easy_setopt(curl, CURLOPT_SSL_VERIFYHOST, 2L);
    curl_easy_setopt(curl, CURLOPT_DNS_CACHE_TIMEOUT, kDnsCacheTimeout);
    curl_easy_setopt(curl, CURLOPT_CONNECTTIMEOUT, kConnectTimeout);
}

void set_transfer_options(CURL *curl, unsigned char *trace_text, curl_write_callback write,
                          void *write_data, membuffer *header, const HeaderList *headers,
                          const char *post) noexcept
{
    curl_easy_setopt(curl, CURLOPT_DEBUGFUNCTION, HttpsTraceCallback);
    curl_easy_setopt(curl, CURLOPT_DEBUGDATA, trace_text);
    curl_easy_setopt(curl, CURLOPT_WRITEFUNCTION, write);
    curl_easy_setopt(curl, CURLOPT_WRITEDATA, write_data);
    curl_easy_setopt(curl, CURLOPT_HEADERFUNCTION, HttpsHeaderCallback);
    curl_easy_setopt(curl, CURLOPT_HEADERDATA, header);
    curl_easy_setopt(curl, CURLOPT_USERAGENT, kUserAgent);
    curl_easy_setopt(curl, CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(curl, CURLOPT_VERBOSE, 0L);
    if (headers != nullptr) {
        curl_easy_setopt(curl, CURLOPT_HTTPHEADER, headers->list);
    }
    if (post != nullptr) {
        curl_easy_setopt(curl, CURLOPT_POST, 1L);
        curl_easy_setopt(curl, CURLOPT_POSTFIELDS, post);
        curl_easy_setopt(curl, CURLOPT_POSTFIELDSIZE, static_cast<long>(strlen(post)));
    }
}

size_t HttpsHeaderCallback(char *data, size_t size, size_t nmemb, void *user) noexcept
{
    const size_t bytes = size * nmemb;
    membuffer_append(static_cast<membuffer *>(user), data, bytes);
    return bytes;
}

size_t HttpsBodyCallback(char *data, size_t size, size_t nmemb, void *user) noexcept
{
    const size_t bytes = size * nmemb;
    membuffer_append(static_cast<membuffer *>(user), data, bytes);
    return bytes;
}

int HttpsTraceCallback(CURL *, curl_infotype type, char *data, size_t size, void *user) noexcept
{
    const char *label = trace_label(type);
    if (label == nullptr) {
        return 0;
    }
    const bool text = *static_cast<const unsigned char *>(user) != 0;
    const size_t width = text ? 64 : 16;
    const auto *bytes = reinterpret_cast<const unsigned char *>(data);

    fprintf(stderr, "%s, %10.10ld bytes (0x%8.8lx)\n", label, static_cast<long>(size),
            static_cast<unsigned long>(size));
    size_t i = 0;
    while (i < size) {
        fprintf(stderr, "%4.4lx: ", static_cast<unsigned long>(i));
        if (!text) {
            for (size_t c = 0; c < width; ++c) {
                if (i + c < size) {
                    fprintf(stderr, "%02x ", bytes[i + c]);
                } else {
                    fputs("   ", stderr);
                }
            }
        }
        // In text mode a CR LF pair ends the line and the next line starts
        // right behind it, with its own offset.
        size_t next = i + width;
        for (size_t c = 0; c < width && i + c < size; ++c) {
            if (text && is_crlf(bytes, size, i + c)) {
                next = i + c + 2;
                break;
            }
            const unsigned char byte = bytes[i + c];
            fputc(byte >= 0x20 && byte <= 0x7F ? byte : '.', stderr);
            if (text && is_crlf(bytes, size, i + c + 1)) {
                next = i + c + 3;
                break;
            }
        }
        fputc('\n', stderr);
        i = next;
    }
    fflush(stderr);
    return 0;
}

}  // namespace ku_https

using namespace ku_https;

extern "C" {

KU_API HttpsResponse *HttpsRequest(const char *url, char *headers, const char *post,
                                   const char *save_path, int timeout) noexcept
{
    if (timeout <= 0) {
        timeout = kDefaultTimeout;
    }
    SaveFile save;
    if (save_path != nullptr && !save.open(save_path, kName, true)) {
        return nullptr;
    }

    curl_users_enter();
    HttpsResponse *result = nullptr;
    CURL *curl = curl_easy_init();
    if (curl != nullptr) {
        Collected collected;
        ChosenUrl chosen(url);
        unsigned char trace_text = 1;

        curl_easy_setopt(curl, CURLOPT_URL, chosen.text);
        chosen.release();
        curl_easy_setopt(curl, CURLOPT_HTTP_VERSION, static_cast<long>(CURL_HTTP_VERSION_1_1));
        set_peer_options(curl);
        curl_easy_setopt(curl, CURLOPT_MAXCONNECTS, kMaxConnects);
        curl_easy_setopt(curl, CURLOPT_TIMEOUT, static_cast<long>(timeout));
        curl_easy_setopt(curl, CURLOPT_SERVER_RESPONSE_TIMEOUT, kServerResponseTimeout);
        HeaderList header_list(headers);
        const HeaderList *listed = headers != nullptr ? &header_list : nullptr;
        if (save.file != nullptr) {
            // libcurl calls fwrite itself with the save file as its stream.
            set_transfer_options(curl, &trace_text, reinterpret_cast<curl_write_callback>(&fwrite),
                                 save.file, &collected.header, listed, post);
        } else {
            set_transfer_options(curl, &trace_text, HttpsBodyCallback, &collected.body,
                                 &collected.header, listed, post);
        }

        // A request whose headers could not all be listed is not sent with
        // some of them missing.
        CURLcode code = CURLE_OUT_OF_MEMORY;
        for (int attempt = 1; header_list.complete; ++attempt) {
            if (attempt > 1) {
                collected.clear();
                if (save.file != nullptr) {
                    rewind_save_file(save.file);
                }
            }
            code = curl_easy_perform(curl);
            if (code == CURLE_OK || !is_retried(code) || attempt == kAttempts) {
                break;
            }
        }

        // Until the stream is flushed, bytes that libcurl handed over may sit
        // in stdio's buffer: a full file system shows only now.
        if (code == CURLE_OK && save.file != nullptr && !flush_save_file(save.file)) {
            code = CURLE_WRITE_ERROR;
        }
        header_list.release();
        curl_easy_reset(curl);
        if (code == CURLE_OK) {
            result = make_response(collected, save.file);
            curl_easy_cleanup(curl);
        } else {
            curl_easy_cleanup(curl);
            fprintf(stderr, kFailed, kName, static_cast<int>(code));
        }
    }
    if (!save.close() && result != nullptr) {
        // The last bytes may not have reached the file: no success.
        HttpsFreeResponse(result);
        result = nullptr;
        fprintf(stderr, kFailed, kName, static_cast<int>(CURLE_WRITE_ERROR));
    }
    curl_users_leave();
    return result;
}

KU_API void HttpsFreeResponse(HttpsResponse *response) noexcept
{
    if (response == nullptr) {
        return;
    }
    free(response->header);
    free(response->body);
    free(response);
}

}  // extern "C"
