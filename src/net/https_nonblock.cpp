// Cancellable HTTP/HTTPS request: one transfer driven through libcurl's multi
// interface in a loop on the caller's thread, so that the caller's cancel
// test and a whole-transfer time limit are served between two waits.
#include <sys/select.h>

#include <cstdint>

#include "ku/clock.h"
#include "ku/log.h"
#include "net/https_internal.h"

namespace {

using namespace ku_https;

constexpr const char *kName = "HttpsRequestNonBlock";
constexpr const char *kMultiInitFailed = "%s curl_multi_init failed\n";
constexpr int32_t kDefaultTimeLimit = 15;
constexpr long kIdleWaitMs = 1000;

// The save file's write callback: counts the bytes and reports the share of
// the expected size in percent, computed in 64 bits so that sizes above
// 42 MB do not overflow. Each piece is flushed before it counts, so that
// progress and done_size never report bytes that a full file system refused.
size_t HttpsFileCallback(char *data, size_t size, size_t nmemb, void *user) noexcept
{
    auto *option = static_cast<HttpsOption *>(user);
    if (option == nullptr || option->file == nullptr) {
        return 0;
    }
    const size_t count = fwrite(data, size, nmemb, option->file);
    if (count == 0 || !flush_save_file(option->file)) {
        return 0;
    }
    if (option->total_size == 0) {
        return count;
    }
    option->done_size += static_cast<uint32_t>(count * size);
    if (option->progress == nullptr) {
        return count;
    }
    const uint64_t percent = static_cast<uint64_t>(option->done_size) * 100u / option->total_size;
    option->progress(option->progress_arg1, option->progress_arg2, static_cast<int>(percent));
    return count;
}

enum class Ending { finished, limit, cancelled };

// Drives the added transfer until it ends, the limit passes or the caller
// cancels.
Ending run_transfer(CURLM *multi, int (*cancel_test)(void *), void *cancel_arg,
                    int32_t time_limit, int64_t start) noexcept
{
    for (;;) {
        int max_fd = -99;
        long wait_ms = static_cast<long>(static_cast<int64_t>(time_limit) * 1000);
        int running = 0;

        if (cancel_test != nullptr && cancel_test(cancel_arg) != 0) {
            return Ending::cancelled;
        }
        curl_multi_perform(multi, &running);
        int msgs_left = 0;
        for (CURLMsg *msg = curl_multi_info_read(multi, &msgs_left); msg != nullptr;
             msg = curl_multi_info_read(multi, &msgs_left)) {
            if (msg->msg == CURLMSG_DONE) {
                ku_trace("curl_multi_perform CURLMSG_DONE msgs_left=%d\n", msgs_left);
                break;
            }
        }
        if (running == 0) {
            return Ending::finished;
        }

        fd_set read_set;
        fd_set write_set;
        fd_set except_set;
        FD_ZERO(&read_set);
        FD_ZERO(&write_set);
        FD_ZERO(&except_set);
        curl_multi_fdset(multi, &read_set, &write_set, &except_set, &max_fd);
        curl_multi_timeout(multi, &wait_ms);
        if (wait_ms <= 0) {
            wait_ms = kIdleWaitMs;
        }
        // Without a descriptor to watch (while a name resolves, say) select
        // only sleeps for the wait; a negative count would make it return at
        // once and the loop spin.
        timeval wait{};
        wait.tv_sec = wait_ms / 1000;
        wait.tv_usec = (wait_ms % 1000) * 1000;
        select(max_fd + 1 > 0 ? max_fd + 1 : 0, &read_set, &write_set, &except_set, &wait);

        const int64_t remaining = static_cast<int64_t>(time_limit) + start - ku_second_ticks();
        if (remaining <= 0) {
            ku_err("download timeout after %d seconds\n", time_limit);
            return Ending::limit;
        }
    }
}

}  // namespace

extern "C" {

KU_API HttpsResponse *HttpsRequestNonBlock(const char *url, char *headers, const char *post,
                                           HttpsOption *option) noexcept
{
    const int64_t start = ku_second_ticks();
    int (*cancel_test)(void *) = option != nullptr ? option->cancel_test : nullptr;
    void *cancel_arg = option != nullptr ? option->cancel_arg : nullptr;
    const int32_t time_limit = option != nullptr ? option->time_limit : kDefaultTimeLimit;
    const char *save_path = option != nullptr ? option->save_path : nullptr;

    SaveFile save;
    if (save_path != nullptr) {
        if (!save.open(save_path, kName, false)) {
            return nullptr;
        }
        option->file = save.file;
    }

    curl_users_enter();
    HttpsResponse *result = nullptr;
    CURLM *multi = curl_multi_init();
    CURL *curl = nullptr;
    if (multi == nullptr) {
        fprintf(stderr, kMultiInitFailed, kName);
    } else {
        curl = curl_easy_init();
    }
    if (curl != nullptr) {
        Collected collected;
        ChosenUrl chosen(url);
        unsigned char trace_text = 1;

        curl_easy_setopt(curl, CURLOPT_HTTP_VERSION, static_cast<long>(CURL_HTTP_VERSION_1_1));
        curl_easy_setopt(curl, CURLOPT_URL, chosen.text);
        chosen.release();
        set_peer_options(curl);
        HeaderList header_list(headers);
        const HeaderList *listed = headers != nullptr ? &header_list : nullptr;
        if (save.file != nullptr) {
            set_transfer_options(curl, &trace_text, HttpsFileCallback, option, &collected.header,
                                 listed, post);
        } else {
            set_transfer_options(curl, &trace_text, HttpsBodyCallback, &collected.body,
                                 &collected.header, listed, post);
        }

        // Headers that could not all be listed fail the set-up: the request
        // is not sent with some of them missing.
        if (header_list.complete) {
            curl_multi_add_handle(multi, curl);
            const Ending ending = run_transfer(multi, cancel_test, cancel_arg, time_limit, start);
            if (ending == Ending::cancelled) {
                ku_trace("got cancel command, exit\n");
                curl_multi_remove_handle(multi, curl);
            } else {
                header_list.release();
                curl_multi_remove_handle(multi, curl);
                curl_easy_reset(curl);
                result = make_response(collected, save.file);
            }
        }
        header_list.release();
        curl_easy_cleanup(curl);
    }
    if (!save.close() && result != nullptr) {
        // A failed close may have lost the last bytes: report none as saved,
        // so that a caller comparing with the expected size sees a failure.
        result->body_length = 0;
    }
    if (multi != nullptr) {
        curl_multi_cleanup(multi);
    }
    curl_users_leave();
    return result;
}

}  // extern "C"
