#define CURL_DISABLE_TYPECHECK 1
#include "support/curl_spy.h"

#include <dlfcn.h>

#include <cstdarg>
#include <cstring>
#include <mutex>
#include <set>
#include <stdexcept>

namespace ku_test {
namespace {

std::mutex &spy_mutex()
{
    static std::mutex mutex;
    return mutex;
}

struct SpyState {
    bool recording = false;
    std::vector<CurlOption> options;
    int performs = 0;
    CurlGlobalTally tally;
    // Handles that libku made; libcurl makes and frees handles of its own
    // through the same functions, which are not counted.
    std::set<const void *> live_handles;
};

SpyState &state()
{
    static SpyState spy;
    return spy;
}

template <typename Function>
Function real(const char *name)
{
    void *symbol = dlsym(RTLD_NEXT, name);
    if (symbol == nullptr) {
        throw std::runtime_error(name);
    }
    return reinterpret_cast<Function>(symbol);
}

bool is_string_option(CURLoption option)
{
    return option == CURLOPT_URL || option == CURLOPT_CAINFO || option == CURLOPT_USERAGENT ||
           option == CURLOPT_POSTFIELDS;
}

void record(CurlOption entry)
{
    std::lock_guard<std::mutex> lock(spy_mutex());
    if (state().recording) {
        state().options.push_back(std::move(entry));
    }
}

// True for a call made by libku itself rather than by libcurl internally.
bool called_by_library(const void *return_address)
{
    Dl_info info{};
    return dladdr(return_address, &info) != 0 && info.dli_fname != nullptr &&
           std::strstr(info.dli_fname, "libku.so") != nullptr;
}

void handle_made(const void *handle, const void *return_address)
{
    if (!called_by_library(return_address)) {
        return;
    }
    std::lock_guard<std::mutex> lock(spy_mutex());
    if (!state().tally.initialised) {
        ++state().tally.violations;
    }
    if (handle != nullptr) {
        state().live_handles.insert(handle);
    }
}

void handle_gone(const void *handle)
{
    std::lock_guard<std::mutex> lock(spy_mutex());
    state().live_handles.erase(handle);
}

}  // namespace

CurlSpy::CurlSpy()
{
    std::lock_guard<std::mutex> lock(spy_mutex());
    state().recording = true;
    state().options.clear();
    state().performs = 0;
}

CurlSpy::~CurlSpy()
{
    std::lock_guard<std::mutex> lock(spy_mutex());
    state().recording = false;
}

std::vector<CurlOption> CurlSpy::options() const
{
    std::lock_guard<std::mutex> lock(spy_mutex());
    return state().options;
}

CurlOption CurlSpy::last(CURLoption option) const
{
    std::lock_guard<std::mutex> lock(spy_mutex());
    for (auto it = state().options.rbegin(); it != state().options.rend(); ++it) {
        if (it->option == option) {
            return *it;
        }
    }
    CurlOption none;
    none.option = static_cast<CURLoption>(-1);
    return none;
}

int CurlSpy::performs() const
{
    std::lock_guard<std::mutex> lock(spy_mutex());
    return state().performs;
}

CurlGlobalTally curl_global_tally()
{
    std::lock_guard<std::mutex> lock(spy_mutex());
    return state().tally;
}

}  // namespace ku_test

using namespace ku_test;

extern "C" {

// curl.h declares the option as the enum CURLoption, and va_start after a
// parameter of enum type is undefined behaviour. An enum of CURLoption's
// values travels as an int, so the stand-in takes an int and gets the
// exported name through an assembler label.
CURLcode spy_curl_easy_setopt(CURL *curl, int option_number, ...) __asm__("curl_easy_setopt");

CURLcode spy_curl_easy_setopt(CURL *curl, int option_number, ...)
{
    static const auto forward = real<CURLcode (*)(CURL *, CURLoption, ...)>("curl_easy_setopt");
    const auto option = static_cast<CURLoption>(option_number);
    va_list args;
    va_start(args, option_number);
    CurlOption entry;
    entry.option = option;
    CURLcode result;
    if (option < CURLOPTTYPE_OBJECTPOINT) {
        entry.number = va_arg(args, long);
        result = forward(curl, option, entry.number);
    } else if (option >= CURLOPTTYPE_OFF_T && option < CURLOPTTYPE_BLOB) {
        const curl_off_t value = va_arg(args, curl_off_t);
        entry.number = static_cast<long>(value);
        result = forward(curl, option, value);
    } else {
        // Object, string, list and function pointers all travel as one
        // pointer-sized word.
        void *value = va_arg(args, void *);
        entry.pointer = value;
        if (is_string_option(option) && value != nullptr) {
            entry.text = static_cast<const char *>(value);
        }
        if (option == CURLOPT_HTTPHEADER) {
            for (auto *item = static_cast<curl_slist *>(value); item != nullptr; item = item->next) {
                entry.list.emplace_back(item->data);
            }
        }
        result = forward(curl, option, value);
    }
    va_end(args);
    record(std::move(entry));
    return result;
}

CURLcode curl_easy_perform(CURL *curl)
{
    static const auto forward = real<CURLcode (*)(CURL *)>("curl_easy_perform");
    {
        std::lock_guard<std::mutex> lock(spy_mutex());
        if (state().recording) {
            ++state().performs;
        }
        if (!state().tally.initialised) {
            ++state().tally.violations;
        }
    }
    return forward(curl);
}

CURL *curl_easy_init(void)
{
    static const auto forward = real<CURL *(*)(void)>("curl_easy_init");
    CURL *handle = forward();
    handle_made(handle, __builtin_return_address(0));
    return handle;
}

void curl_easy_cleanup(CURL *curl)
{
    static const auto forward = real<void (*)(CURL *)>("curl_easy_cleanup");
    handle_gone(curl);
    forward(curl);
}

CURLM *curl_multi_init(void)
{
    static const auto forward = real<CURLM *(*)(void)>("curl_multi_init");
    CURLM *handle = forward();
    handle_made(handle, __builtin_return_address(0));
    return handle;
}

CURLMcode curl_multi_cleanup(CURLM *multi)
{
    static const auto forward = real<CURLMcode (*)(CURLM *)>("curl_multi_cleanup");
    handle_gone(multi);
    return forward(multi);
}

CURLcode curl_global_init(long flags)
{
    static const auto forward = real<CURLcode (*)(long)>("curl_global_init");
    {
        std::lock_guard<std::mutex> lock(spy_mutex());
        ++state().tally.inits;
        if (state().tally.initialised) {
            ++state().tally.violations;
        }
        state().tally.initialised = true;
    }
    return forward(flags);
}

void curl_global_cleanup(void)
{
    static const auto forward = real<void (*)(void)>("curl_global_cleanup");
    {
        std::lock_guard<std::mutex> lock(spy_mutex());
        ++state().tally.cleanups;
        if (!state().tally.initialised || !state().live_handles.empty()) {
            ++state().tally.violations;
        }
        state().tally.initialised = false;
    }
    forward();
}

}  // extern "C"
