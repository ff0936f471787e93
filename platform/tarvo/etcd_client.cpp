#include "etcd_client.h"

#include <curl/curl.h>

#include <cstring>
#include <mutex>

namespace tarvo {
namespace {

const char ALPHABET[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

// Sextet of each byte, -1 outside the alphabet.
struct Sextets {
    int8_t of[256];
    constexpr Sextets() : of()
    {
        for (int i = 0; i < 256; i++)
            of[i] = -1;
        for (int i = 0; i < 64; i++)
            of[static_cast<uint8_t>(ALPHABET[i])] = static_cast<int8_t>(i);
    }
};
constexpr Sextets SEXTETS;

// A small reader of the JSON the gateway writes, for the range answer.
class Scanner {
public:
    explicit Scanner(std::string_view text) : t_(text) {}
    bool eat(char c)
    {
        blanks();
        if (i_ >= t_.size() || t_[i_] != c)
            return false;
        i_++;
        return true;
    }
    bool peek(char c)
    {
        blanks();
        return i_ < t_.size() && t_[i_] == c;
    }
    bool at_end()
    {
        blanks();
        return i_ == t_.size();
    }
    // A string; escapes are undone into *scratch, else the view points
    // into the text.
    bool string(std::string_view *out, std::string *scratch);
    bool skip_value();
    bool literal(bool *value);

private:
    void blanks()
    {
        while (i_ < t_.size() && (t_[i_] == ' ' || t_[i_] == '\n' || t_[i_] == '\r' || t_[i_] == '\t'))
            i_++;
    }
    bool escape(std::string *out);
    std::string_view t_;
    size_t i_ = 0;
};

bool Scanner::string(std::string_view *out, std::string *scratch)
{
    if (!eat('"'))
        return false;
    const size_t start = i_;
    while (i_ < t_.size() && t_[i_] != '"' && t_[i_] != '\\')
        i_++;
    if (i_ < t_.size() && t_[i_] == '"') {
        *out = t_.substr(start, i_ - start);
        i_++;
        return true;
    }
    scratch->assign(t_.substr(start, i_ - start));
    while (i_ < t_.size() && t_[i_] != '"') {
        if (t_[i_] == '\\') {
            if (!escape(scratch))
                return false;
        } else {
            *scratch += t_[i_++];
        }
    }
    if (i_ >= t_.size())
        return false;
    i_++;
    *out = *scratch;
    return true;
}

bool Scanner::escape(std::string *out)
{
    if (++i_ >= t_.size())
        return false;
    const char c = t_[i_++];
    switch (c) {
    case '"': case '\\': case '/': *out += c; return true;
    case 'b': *out += '\b'; return true;
    case 'f': *out += '\f'; return true;
    case 'n': *out += '\n'; return true;
    case 'r': *out += '\r'; return true;
    case 't': *out += '\t'; return true;
    case 'u': break;
    default: return false;
    }
    if (i_ + 4 > t_.size())
        return false;
    unsigned code = 0;
    for (int k = 0; k < 4; k++) {
        const char h = t_[i_++];
        code <<= 4;
        if (h >= '0' && h <= '9')
            code |= unsigned(h - '0');
        else if (h >= 'a' && h <= 'f')
            code |= unsigned(h - 'a' + 10);
        else if (h >= 'A' && h <= 'F')
            code |= unsigned(h - 'A' + 10);
        else
            return false;
    }
    // Keys and values come as base64: only characters below 0x80 matter.
    if (code >= 0x80)
        return false;
    *out += char(code);
    return true;
}

bool Scanner::literal(bool *value)
{
    blanks();
    for (const char *word : {"true", "false", "null"}) {
        const std::string_view w(word);
        if (t_.substr(i_, w.size()) == w) {
            i_ += w.size();
            *value = w == "true";
            return true;
        }
    }
    return false;
}

bool Scanner::skip_value()
{
    std::string_view text;
    std::string scratch;
    bool flag = false;
    blanks();
    if (i_ >= t_.size())
        return false;
    const char c = t_[i_];
    if (c == '"')
        return string(&text, &scratch);
    if (c == '{' || c == '[') {
        const char close = c == '{' ? '}' : ']';
        i_++;
        if (eat(close))
            return true;
        do {
            if (c == '{' && !(string(&text, &scratch) && eat(':')))
                return false;
            if (!skip_value())
                return false;
        } while (eat(','));
        return eat(close);
    }
    if (literal(&flag))
        return true;
    const size_t start = i_;
    while (i_ < t_.size() && std::strchr("+-0123456789.eE", t_[i_]))
        i_++;
    return i_ > start;
}

// One member of "kvs": its key and value, the rest skipped.
bool read_kv(Scanner &in, KV *kv)
{
    if (!in.eat('{'))
        return false;
    if (in.eat('}'))
        return true;
    std::string_view name, text;
    std::string scratch;
    do {
        if (!in.string(&name, &scratch) || !in.eat(':'))
            return false;
        std::string *target = name == "key" ? &kv->key : name == "value" ? &kv->value : nullptr;
        if (!target) {
            if (!in.skip_value())
                return false;
            continue;
        }
        if (!in.string(&text, &scratch) || !base64_decode(text, target))
            return false;
    } while (in.eat(','));
    return in.eat('}');
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
    const size_t pad = in.find('=');
    if (pad != std::string_view::npos)
        in = in.substr(0, pad);
    out->resize(in.size() / 4 * 3 + (in.size() % 4 * 3) / 4);
    char *to = out->data();
    uint32_t acc = 0;
    int bits = 0;
    for (char c : in) {
        const int v = SEXTETS.of[static_cast<uint8_t>(c)];
        if (v < 0) {
            out->clear();
            return false;
        }
        acc = acc << 6 | uint32_t(v);
        bits += 6;
        if (bits >= 8) {
            bits -= 8;
            *to++ = char((acc >> bits) & 0xff);
        }
    }
    out->resize(static_cast<size_t>(to - out->data()));
    return true;
}

bool read_range_answer(std::string_view text, std::vector<KV> *kvs, bool *more)
{
    Scanner in(text);
    *more = false;
    std::string_view name;
    std::string scratch;
    if (!in.eat('{'))
        return false;
    if (in.eat('}'))
        return in.at_end();
    do {
        if (!in.string(&name, &scratch) || !in.eat(':'))
            return false;
        if (name == "error")
            return false;
        if (name == "more") {
            if (!in.literal(more))
                return false;
        } else if (name == "kvs" && in.peek('[')) {
            in.eat('[');
            if (in.eat(']'))
                continue;
            do {
                KV kv;
                if (!read_kv(in, &kv))
                    return false;
                kvs->push_back(std::move(kv));
            } while (in.eat(','));
            if (!in.eat(']'))
                return false;
        } else if (!in.skip_value()) {
            return false;
        }
    } while (in.eat(','));
    return in.eat('}') && in.at_end();
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

Status EtcdClient::send(const char *path, const nlohmann::json &request, std::string *text)
{
    const std::string body = request.dump();
    Status s;
    for (size_t tried = 0; tried < endpoints_.size(); tried++) {
        bool unreachable = false;
        s = post(endpoints_[current_], path, body, text, &unreachable);
        if (!unreachable)
            break;
        current_ = (current_ + 1) % endpoints_.size();
    }
    return s;
}

Status EtcdClient::call(const char *path, const nlohmann::json &request, nlohmann::json *answer)
{
    std::string text;
    Status s = send(path, request, &text);
    return s.ok() ? check(text, answer) : s;
}

Status EtcdClient::range(const nlohmann::json &request, std::vector<KV> *kvs, bool *more)
{
    std::string text;
    Status s = send("/v3/kv/range", request, &text);
    if (!s.ok())
        return s;
    const size_t before = kvs->size();
    if (read_range_answer(text, kvs, more))
        return ok_status();
    kvs->resize(before);
    // An answer etcd refused, or one that is not what a range gives.
    nlohmann::json answer;
    s = check(text, &answer);
    return s.ok() ? error(TARVO_ERR_STORE_CORRUPT, "etcd answered a range with something else")
                  : s;
}

Status EtcdClient::check(const std::string &text, nlohmann::json *answer)
{
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
