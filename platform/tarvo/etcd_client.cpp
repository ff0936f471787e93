#include "etcd_client.h"

#include <curl/curl.h>

#include <mutex>

namespace tarvo {
namespace {

const char ALPHABET[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

int sextet(char c)
{
    if (c >= 'A' && c <= 'Z')
        return c - 'A';
    if (c >= 'a' && c <= 'z')
        return c - 'a' + 26;
    if (c >= '0' && c <= '9')
        return c - '0' + 52;
    if (c == '+')
        return 62;
    if (c == '/')
        return 63;
    return -1;
}

size_t collect(char *data, size_t size, size_t count, void *out)
{
    static_cast<std::string *>(out)->append(data, size * count);
    return size * count;
}

void global_init()
{
    static std::once_flag once;
    std::call_once(once, [] { curl_global_init(CURL_GLOBAL_DEFAULT); });
}

}  // namespace

std::string base64_encode(std::string_view in)
{
    std::string out;
    out.reserve((in.size() + 2) / 3 * 4);
    size_t i = 0;
    for (; i + 2 < in.size(); i += 3) {
        uint32_t v = uint32_t(uint8_t(in[i])) << 16 | uint32_t(uint8_t(in[i + 1])) << 8 |
                     uint8_t(in[i + 2]);
        for (int shift = 18; shift >= 0; shift -= 6)
            out += ALPHABET[(v >> shift) & 63];
    }
    if (i < in.size()) {
        uint32_t v = uint32_t(uint8_t(in[i])) << 16;
        if (i + 1 < in.size())
            v |= uint32_t(uint8_t(in[i + 1])) << 8;
        out += ALPHABET[(v >> 18) & 63];
        out += ALPHABET[(v >> 12) & 63];
        out += i + 1 < in.size() ? ALPHABET[(v >> 6) & 63] : '=';
        out += '=';
    }
    return out;
}

bool base64_decode(std::string_view in, std::string *out)
{
    out->clear();
    uint32_t acc = 0;
    int bits = 0;
    for (char c : in) {
        if (c == '=')
            break;
        int v = sextet(c);
        if (v < 0)
            return false;
        acc = acc << 6 | uint32_t(v);
        bits += 6;
        if (bits >= 8) {
            bits -= 8;
            *out += char((acc >> bits) & 0xff);
        }
    }
    return true;
}

EtcdClient::EtcdClient(std::vector<std::string> endpoints) : endpoints_(std::move(endpoints))
{
    global_init();
    curl_ = curl_easy_init();
    // No "Expect: 100-continue" round trip before larger bodies.
    headers_ = curl_slist_append(nullptr, "Expect:");
    headers_ = curl_slist_append(static_cast<curl_slist *>(headers_), "Content-Type: application/json");
}

EtcdClient::~EtcdClient()
{
    curl_slist_free_all(static_cast<curl_slist *>(headers_));
    if (curl_)
        curl_easy_cleanup(static_cast<CURL *>(curl_));
}

Status EtcdClient::post(const std::string &endpoint, const char *path, const std::string &body,
                        std::string *out, bool *unreachable)
{
    CURL *curl = static_cast<CURL *>(curl_);
    if (!curl)
        return error(TARVO_ERR_NO_MEMORY, "no HTTP handle");
    const std::string url = "http://" + endpoint + path;
    curl_easy_setopt(curl, CURLOPT_URL, url.c_str());
    curl_easy_setopt(curl, CURLOPT_HTTPHEADER, headers_);
    curl_easy_setopt(curl, CURLOPT_POSTFIELDS, body.c_str());
    curl_easy_setopt(curl, CURLOPT_POSTFIELDSIZE, long(body.size()));
    curl_easy_setopt(curl, CURLOPT_WRITEFUNCTION, collect);
    curl_easy_setopt(curl, CURLOPT_WRITEDATA, out);
    curl_easy_setopt(curl, CURLOPT_CONNECTTIMEOUT_MS, ETCD_CONNECT_TIMEOUT_MS);
    curl_easy_setopt(curl, CURLOPT_TIMEOUT_MS, ETCD_REQUEST_TIMEOUT_MS);
    curl_easy_setopt(curl, CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(curl, CURLOPT_PROXY, "");
    curl_easy_setopt(curl, CURLOPT_TCP_NODELAY, 1L);
    out->clear();
    CURLcode rc = curl_easy_perform(curl);
    *unreachable = rc != CURLE_OK;
    if (rc != CURLE_OK)
        return error(TARVO_ERR_STORE,
                     "etcd member " + endpoint + " unreachable: " + curl_easy_strerror(rc));
    long http = 0;
    curl_easy_getinfo(curl, CURLINFO_RESPONSE_CODE, &http);
    // etcd answers 503 while a member has no leader: another may have one.
    *unreachable = http == 503;
    if (http != 200 && out->find("\"error\"") == std::string::npos)
        return error(TARVO_ERR_STORE,
                     "etcd member " + endpoint + " answered HTTP " + std::to_string(http));
    return ok_status();
}

Status EtcdClient::call(const char *path, const nlohmann::json &request, nlohmann::json *answer)
{
    const std::string body = request.dump();
    std::string text;
    Status s;
    for (size_t tried = 0; tried < endpoints_.size(); tried++) {
        bool unreachable = false;
        s = post(endpoints_[current_], path, body, &text, &unreachable);
        if (!unreachable)
            break;
        current_ = (current_ + 1) % endpoints_.size();
    }
    if (!s.ok())
        return s;
    *answer = nlohmann::json::parse(text, nullptr, false);
    if (answer->is_discarded() || !answer->is_object())
        return error(TARVO_ERR_STORE, "etcd answered something that is not JSON");
    if (answer->contains("error")) {
        const auto &message = answer->contains("message") ? (*answer)["message"] : (*answer)["error"];
        return error(TARVO_ERR_STORE,
                     "etcd: " + (message.is_string() ? message.get<std::string>() : message.dump()));
    }
    return ok_status();
}

}  // namespace tarvo
