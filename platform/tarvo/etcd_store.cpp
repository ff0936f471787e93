// The etcd backend of the shared plane. It shares the write engine of the
// single-node backends (LocalStore): a write runs against a snapshot of the
// cluster at one revision with its own changes laid over it, and ends in one
// etcd transaction that applies every change only when no other write has
// ended since the snapshot (the plane's version key has the same mod
// revision). A writer that loses that race runs its whole request again.
//
// Keys, below ROOT = "<prefix>|" ('|' never occurs in a prefix, so that two
// prefixes never overlap):
//   ROOT n<node key>        a node: int32 datatype (little endian) + value
//   ROOT r<table>/<key>     a record (locks, error lists, meta); locks carry
//                           the bind's lease, so they end with their process
//   ROOT e/<seq, 16 hex>    an event of the plane's event log
//   ROOT m/version          touched by every write (the conflict check)
//   ROOT m/seq              the last event sequence number
//   ROOT m/bulk, m/owner    a write too large for one etcd request (below)
//
// A write larger than one etcd request may carry (ETCD_MAX_OPS operations,
// ETCD_MAX_BYTES bytes) goes in steps: a claim (m/bulk = the snapshot
// revision B, m/owner under the writer's lease, checked against the version
// key like any write), the changes in chunks (each checked against m/owner),
// and a last request that drops the claim. While m/bulk is there readers
// read at revision B, so they never see half a write, and writers wait.
// When m/owner is gone but m/bulk is not, the writer died: the next writer
// puts every key changed after B back to its value at B.
#include <chrono>
#include <condition_variable>
#include <map>
#include <mutex>
#include <optional>
#include <thread>

#include "etcd_cache.h"
#include "etcd_client.h"
#include "holder.h"
#include "local_store.h"
#include "path_match.h"
#include "paths.h"
#include "settings.h"

namespace tarvo {
namespace {

using nlohmann::json;

constexpr size_t ETCD_MAX_OPS = 120;          // etcd's default limit is 128
constexpr size_t ETCD_MAX_BYTES = 1u << 20;   // and 1.5 MiB a request
constexpr int64_t LEASE_TTL_S = 10;
constexpr uint32_t ETCD_MAX_CHUNK = 1000;     // keys of one range a page asks for
constexpr uint32_t ETCD_MAX_AHEAD = 16000;    // keys of one range a long listing reads
constexpr uint64_t ETCD_AHEAD_BYTES = 4u << 20;
constexpr uint32_t ETCD_PREFETCH = 128;       // records read with a writer's pin

std::string prefix_end(std::string key)
{
    while (!key.empty() && static_cast<unsigned char>(key.back()) == 0xff)
        key.pop_back();
    if (!key.empty())
        key.back() = static_cast<char>(key.back() + 1);
    return key;
}

std::string node_key(std::string_view path)
{
    if (path.size() > 1 && path.back() == '/')
        path.remove_suffix(1);
    return std::string(path);
}

std::string hex16(uint64_t v)
{
    char text[17];
    std::snprintf(text, sizeof text, "%016llx", static_cast<unsigned long long>(v));
    return text;
}

// A member of an object, or null: the gateway leaves out fields at their
// default value.
const json &field(const json &object, const char *name)
{
    static const json none;
    if (!object.is_object())
        return none;
    auto it = object.find(name);
    return it == object.end() ? none : *it;
}

int64_t number(const json &v)
{
    if (v.is_string())
        return std::strtoll(v.get<std::string>().c_str(), nullptr, 10);
    return v.is_number() ? v.get<int64_t>() : 0;
}

int64_t now_ms()
{
    return std::chrono::duration_cast<std::chrono::milliseconds>(
               std::chrono::steady_clock::now().time_since_epoch())
        .count();
}

void put_u32(std::string *out, uint32_t v) { out->append(reinterpret_cast<const char *>(&v), 4); }

bool get_u32(std::string_view *in, uint32_t *v)
{
    if (in->size() < 4)
        return false;
    std::memcpy(v, in->data(), 4);
    in->remove_prefix(4);
    return true;
}

bool get_text(std::string_view *in, std::string *text)
{
    uint32_t n = 0;
    if (!get_u32(in, &n) || in->size() < n)
        return false;
    text->assign(in->substr(0, n));
    in->remove_prefix(n);
    return true;
}

void put_text(std::string *out, std::string_view text)
{
    put_u32(out, static_cast<uint32_t>(text.size()));
    out->append(text);
}

std::string encode_event(const Event &e)
{
    std::string out;
    put_u32(&out, e.kind);
    put_u32(&out, static_cast<uint32_t>(e.datatype));
    put_u32(&out, (e.has_old ? 1u : 0u) | (e.has_new ? 2u : 0u));
    put_text(&out, e.path);
    put_text(&out, e.old_value);
    put_text(&out, e.new_value);
    return out;
}

bool decode_event(std::string_view in, uint64_t seq, Event *e)
{
    uint32_t datatype = 0, flags = 0;
    e->seq = seq;
    bool ok = get_u32(&in, &e->kind) && get_u32(&in, &datatype) && get_u32(&in, &flags) &&
              get_text(&in, &e->path) && get_text(&in, &e->old_value) &&
              get_text(&in, &e->new_value);
    e->datatype = static_cast<int32_t>(datatype);
    e->has_old = flags & 1;
    e->has_new = flags & 2;
    return ok;
}

// The keys and values of a range answer, in its order.
bool decode_kvs(const json &range, std::vector<KV> *out, bool *more)
{
    *more = range.is_object() && range.value("more", false);
    const json &kvs = field(range, "kvs");
    if (!kvs.is_array())
        return true;
    for (const json &kv : kvs) {
        KV entry;
        if (!base64_decode(kv.value("key", ""), &entry.key) ||
            !base64_decode(kv.value("value", ""), &entry.value))
            return false;
        out->push_back(std::move(entry));
    }
    return true;
}

// Renews one lease from a thread of its own while the store lives, so that
// the locks under it outlive any pause of the console but not its process.
class LeaseKeeper {
public:
    LeaseKeeper(std::vector<std::string> endpoints, int64_t id)
        : client_(std::move(endpoints)), id_(id), thread_([this] { run(); })
    {
    }
    ~LeaseKeeper()
    {
        {
            std::lock_guard<std::mutex> lock(mutex_);
            stop_ = true;
        }
        wake_.notify_all();
        thread_.join();
        json answer;
        client_.call("/v3/lease/revoke", json{{"ID", std::to_string(id_)}}, &answer);
    }

private:
    void run()
    {
        std::unique_lock<std::mutex> lock(mutex_);
        while (!wake_.wait_for(lock, std::chrono::seconds(LEASE_TTL_S) / 3, [this] { return stop_; })) {
            json answer;
            client_.call("/v3/lease/keepalive", json{{"ID", std::to_string(id_)}}, &answer);
        }
    }

    EtcdClient client_;
    int64_t id_;
    std::mutex mutex_;
    std::condition_variable wake_;
    bool stop_ = false;
    std::thread thread_;
};

class EtcdEngine final : public LocalStore {
public:
    EtcdEngine(std::vector<std::string> endpoints, const std::string &prefix,
               const StoreOptions &options)
        : client_(endpoints), endpoints_(std::move(endpoints)), root_(prefix + "|"),
          options_(options), boot_(new_holder().boot)
    {
    }

    Status lookup(std::string_view path, Node *node) override;
    Status list(std::string_view dir, const ListQuery &query, Page *page) override;
    Status scan(std::string_view dir, const ScanQuery &query, Page *page) override;
    Status events_after(uint64_t after, uint32_t max, std::vector<Event> *events) override;
    Status find_events(std::string_view dir, const ScanQuery &query, EventPage *page) override;
    Status ping() override;
    Status stats(StoreStats *stats) override;

    bool conflict() const { return conflict_; }

protected:
    Status begin_write() override;
    Status commit_write() override;
    void rollback_write() override;
    Status put_node(const Node &node) override;
    Status erase_node(std::string_view path) override;
    Status append_event(const Event &event) override;
    Status trim_events() override;
    Status last_event_seq(uint64_t *seq) override
    {
        *seq = seq_;
        return ok_status();
    }
    uint64_t event_window() const override { return options_.event_window; }
    Status get_record(Table table, std::string_view key, std::string *value) override;
    Status put_record(Table table, std::string_view key, std::string_view value) override;
    Status erase_record(Table table, std::string_view key) override;
    Status clear_records(Table table) override;
    Status read_records(Table table, std::string_view after, uint32_t max,
                        std::vector<Record> *records) override;
    // A holder on this machine counts while its process lives; one on
    // another machine while its lock key is there (its lease is renewed).
    bool lock_alive(const Holder &holder) override
    {
        return holder.boot != boot_ || holder_alive(holder);
    }

private:
    friend class Walker;
    // Pins the revision that the reads of one call (or of a write) see.
    class Scope {
    public:
        explicit Scope(EtcdEngine &e) : e_(e)
        {
            if (!e_.in_write_ && e_.rev_ == 0) {
                status = e_.pin(false);
                pinned_ = true;
            }
        }
        ~Scope()
        {
            if (pinned_)
                e_.rev_ = 0;
        }
        Status status;

    private:
        EtcdEngine &e_;
        bool pinned_ = false;
    };
    // The merged entries of [lo, hi): the snapshot with the write's own
    // changes laid over it, fetched in chunks.
    class Walker {
    public:
        Walker(EtcdEngine &e, std::string lo, std::string hi, bool reverse, uint32_t chunk)
            : e_(e), lo_(std::move(lo)), hi_(std::move(hi)), reverse_(reverse), chunk_(chunk)
        {
        }
        // The next entry; null at the end.
        Status next(const KV **kv);
        // Forward: go on from `bound`; reverse: go on below it.
        void skip_to(std::string bound)
        {
            (reverse_ ? hi_ : lo_) = std::move(bound);
            buffer_.clear();
            pos_ = 0;
            done_ = false;
        }

    private:
        Status refill();
        EtcdEngine &e_;
        std::string lo_, hi_;
        bool reverse_;
        uint32_t chunk_;
        std::vector<KV> buffer_;
        size_t pos_ = 0;
        bool done_ = false;
    };

    std::string node_at(std::string_view path) const { return root_ + "n" + node_key(path); }
    std::string record_at(Table table, std::string_view key) const
    {
        return root_ + "r" + char('0' + static_cast<int>(table)) + "/" + std::string(key);
    }
    std::string events_at() const { return root_ + "e/"; }
    std::string meta(const char *name) const { return root_ + "m/" + name; }

    Status fault();
    Status pin(bool writer);
    Status read_key(const std::string &key, std::string *value, bool *found);
    EtcdReadCache *cache_for(const std::string &key);
    Status fetch_range(const std::string &lo, const std::string &hi, bool reverse, uint32_t limit,
                       std::vector<KV> *out, bool *more);
    Status base_range(const std::string &lo, const std::string &hi, bool reverse, uint32_t limit,
                      std::vector<KV> *out, bool *more);
    Status decode_node(const KV &kv, Node *node) const;
    Status ensure_lease();
    Status txn(const json &compare, const json &success, bool *succeeded, json *answer = nullptr);
    Status commit_steps(const json &compare, std::vector<json> &ops, int64_t *revision);
    Status recover(int64_t base, int64_t bulk_mod);
    void end_write();

    EtcdClient client_;
    std::vector<std::string> endpoints_;
    std::string root_;
    StoreOptions options_;
    std::string boot_;
    int64_t rev_ = 0;           // the pinned revision; 0 outside a call
    int64_t version_mod_ = 0;   // mod revision of m/version at rev_
    bool in_write_ = false;
    bool conflict_ = false;
    uint64_t seq_ = 0;
    uint64_t trim_below_ = 0;
    std::map<std::string, std::optional<std::string>> overlay_;  // key -> value or deleted
    std::vector<Event> events_;
    int64_t lease_ = 0;
    std::unique_ptr<LeaseKeeper> keeper_;
    // Node keys, valid while m/version keeps the mod revision nodes_mod_:
    // every change of a node puts m/version too, but for the chunks of a
    // large write, and while those run m/bulk exists and the cache is unused.
    EtcdReadCache nodes_;
    int64_t nodes_mod_ = -1;
    bool cacheable_ = false;   // the pin found no large write under way
    EtcdReadCache pinned_;     // any key, at the pinned revision only
    uint32_t ahead_ = 0;       // keys of the last forward node range fetched
};

Status EtcdEngine::fault()
{
    if (options_.faults && options_.faults->fail_write())
        return error(TARVO_ERR_STORE, "injected write fault in etcd store");
    return ok_status();
}

Status EtcdEngine::txn(const json &compare, const json &success, bool *succeeded, json *answer)
{
    json scratch;
    if (!answer)
        answer = &scratch;
    json request{{"compare", compare}, {"success", success}};
    if (!compare.empty())
        request["failure"] = json::array({json{{"request_range", {{"key", base64_encode(meta("bulk"))}}}}});
    Status s = client_.call("/v3/kv/txn", request, answer);
    *succeeded = s.ok() && answer->value("succeeded", false);
    return s;
}

Status EtcdEngine::pin(bool writer)
{
    // Every write reads the locks and the meta records (the rules'
    // generation): they come with the pin, in the same round trip.
    const std::string records_lo = record_at(Table::META, ""),
                      records_hi = root_ + "r" + char('0' + static_cast<int>(Table::LOCKS) + 1);
    for (int round = 0; round < 2; round++) {
        cacheable_ = false;
        pinned_.clear();
        json compare = json::array({json{{"target", "VERSION"},
                                         {"key", base64_encode(meta("bulk"))},
                                         {"result", "EQUAL"},
                                         {"version", "0"}}});
        json success = json::array({json{{"request_range", {{"key", base64_encode(meta("version"))}}}},
                                    json{{"request_range", {{"key", base64_encode(meta("seq"))}}}}});
        if (writer)
            success.push_back(json{{"request_range",
                                    {{"key", base64_encode(records_lo)},
                                     {"range_end", base64_encode(records_hi)},
                                     {"limit", std::to_string(ETCD_PREFETCH)}}}});
        bool clear = false;
        json answer;
        Status s = txn(compare, success, &clear, &answer);
        if (!s.ok())
            return s;
        const json &responses = field(answer, "responses");
        auto first_kv = [&](size_t i) -> const json * {
            if (!responses.is_array() || responses.size() <= i)
                return nullptr;
            const json &kvs = field(field(responses[i], "response_range"), "kvs");
            return kvs.is_array() && !kvs.empty() ? &kvs[0] : nullptr;
        };
        if (clear) {
            rev_ = number(field(field(answer, "header"), "revision"));
            const json *version = first_kv(0);
            version_mod_ = version ? number(field(*version, "mod_revision")) : 0;
            std::string seq;
            const json *kv = first_kv(1);
            if (kv && base64_decode((*kv).value("value", ""), &seq))
                seq_ = std::strtoull(seq.c_str(), nullptr, 10);
            else
                seq_ = 0;
            if (nodes_mod_ != version_mod_)
                nodes_.clear();
            nodes_mod_ = version_mod_;
            cacheable_ = true;
            if (writer && responses.is_array() && responses.size() > 2) {
                std::vector<KV> records;
                bool more = true;
                if (decode_kvs(field(responses[2], "response_range"), &records, &more) && !more)
                    pinned_.add_span(records_lo, records_hi, std::move(records), records_lo);
            }
            return ok_status();
        }
        // A large write is under way (or died): readers see the plane before it.
        const json *bulk = first_kv(0);
        std::string base;
        if (!bulk || !base64_decode((*bulk).value("value", ""), &base))
            continue;
        if (!writer) {
            rev_ = std::strtoll(base.c_str(), nullptr, 10);
            return ok_status();
        }
        std::string owner;
        bool found = false;
        rev_ = 0;
        s = read_key(meta("owner"), &owner, &found);
        if (!s.ok())
            return s;
        if (found) {
            conflict_ = true;
            return error(TARVO_ERR_BUSY, "a large write to the shared plane is under way");
        }
        s = recover(std::strtoll(base.c_str(), nullptr, 10), number(field(*bulk, "mod_revision")));
        if (!s.ok())
            return s;
    }
    conflict_ = true;
    return error(TARVO_ERR_BUSY, "the shared plane kept changing");
}

Status EtcdEngine::recover(int64_t base, int64_t bulk_mod)
{
    json request{{"key", base64_encode(root_)},
                 {"range_end", base64_encode(prefix_end(root_))},
                 {"min_mod_revision", std::to_string(base + 1)},
                 {"keys_only", true}};
    json answer;
    Status s = client_.call("/v3/kv/range", request, &answer);
    if (!s.ok())
        return s;
    std::vector<json> ops;
    const std::string locks = record_at(Table::LOCKS, "");
    for (const json &kv : answer.value("kvs", json::array())) {
        std::string key;
        base64_decode(kv.value("key", ""), &key);
        if (key == meta("bulk") || key.compare(0, locks.size(), locks) == 0)
            continue;
        json old;
        s = client_.call("/v3/kv/range",
                         json{{"key", base64_encode(key)}, {"revision", std::to_string(base)}}, &old);
        if (!s.ok())
            return s;
        const json &kvs = old.value("kvs", json::array());
        if (kvs.empty())
            ops.push_back(json{{"request_delete_range", {{"key", base64_encode(key)}}}});
        else
            ops.push_back(json{{"request_put", {{"key", base64_encode(key)}, {"value", kvs[0].value("value", "")}}}});
    }
    ops.push_back(json{{"request_delete_range", {{"key", base64_encode(meta("bulk"))}}}});
    ops.push_back(json{{"request_put", {{"key", base64_encode(meta("version"))}, {"value", ""}}}});
    // Restoring twice is harmless; the claim goes with the last chunk only.
    json same = json::array({json{{"target", "MOD"},
                                  {"key", base64_encode(meta("bulk"))},
                                  {"result", "EQUAL"},
                                  {"mod_revision", std::to_string(bulk_mod)}}});
    for (size_t i = 0; i < ops.size(); i += ETCD_MAX_OPS) {
        json chunk = json::array();
        for (size_t j = i; j < ops.size() && j < i + ETCD_MAX_OPS; j++)
            chunk.push_back(ops[j]);
        bool succeeded = false;
        s = txn(same, chunk, &succeeded);
        if (!s.ok())
            return s;
        if (!succeeded)
            return ok_status();  // someone else finished the recovery
    }
    return ok_status();
}

EtcdReadCache *EtcdEngine::cache_for(const std::string &key)
{
    if (!rev_)
        return nullptr;  // a read at the latest revision
    if (cacheable_ && key.size() > root_.size() && key.compare(0, root_.size(), root_) == 0 &&
        key[root_.size()] == 'n')
        return &nodes_;
    return &pinned_;
}

Status EtcdEngine::read_key(const std::string &key, std::string *value, bool *found)
{
    auto it = overlay_.find(key);
    if (it != overlay_.end()) {
        *found = it->second.has_value();
        if (*found)
            *value = *it->second;
        return ok_status();
    }
    EtcdReadCache *cache = cache_for(key);
    int known = cache ? cache->find(key, value) : -1;
    if (known >= 0) {
        *found = known == 1;
        return ok_status();
    }
    json request{{"key", base64_encode(key)}};
    if (rev_)
        request["revision"] = std::to_string(rev_);
    std::vector<KV> kvs;
    bool more = false;
    Status s = client_.range(request, &kvs, &more);
    if (!s.ok())
        return s;
    *found = !kvs.empty();
    if (*found)
        *value = std::move(kvs[0].value);
    if (cache)
        cache->remember(key, *found ? std::optional<std::string>(*value) : std::nullopt);
    return ok_status();
}

// Forward ranges are answered from the cache where it can; a listing that
// goes on past the cached span reads ahead in growing ranges, so that a long
// listing costs etcd few ranges (each range walks etcd's index from its
// first key to the range's end, whatever its limit).
Status EtcdEngine::base_range(const std::string &lo, const std::string &hi, bool reverse,
                              uint32_t limit, std::vector<KV> *out, bool *more)
{
    EtcdReadCache *cache = reverse ? nullptr : cache_for(lo);
    std::string resume;
    if (!cache)
        return fetch_range(lo, hi, reverse, limit, out, more);
    if (cache->range(lo, hi, limit, out, more, &resume))
        return ok_status();
    const uint32_t want = limit - static_cast<uint32_t>(out->size());
    uint32_t fetch = want;
    if (cache == &nodes_ && cache->continues(resume))
        fetch = std::clamp<uint32_t>(ahead_ * 2, want, std::max(want, ETCD_MAX_AHEAD));
    std::vector<KV> got;
    bool got_more = false;
    Status s = fetch_range(resume, hi, false, fetch, &got, &got_more);
    if (!s.ok())
        return s;
    if (cache == &nodes_) {
        uint64_t bytes = 0;
        for (const KV &kv : got)
            bytes += kv.key.size() + kv.value.size();
        // Large values: read ahead no further than about ETCD_AHEAD_BYTES.
        ahead_ = got.empty() ? fetch
                             : static_cast<uint32_t>(std::min<uint64_t>(
                                   fetch, ETCD_AHEAD_BYTES / 2 / (bytes / got.size() + 1) + 1));
    }
    const size_t n = std::min<size_t>(want, got.size());
    out->insert(out->end(), got.begin(), got.begin() + static_cast<ptrdiff_t>(n));
    *more = got_more || got.size() > n;
    if (!got_more || !got.empty()) {
        std::string end = got_more ? got.back().key + '\0' : hi;
        cache->add_span(resume, end, std::move(got), lo);
    }
    return ok_status();
}

Status EtcdEngine::fetch_range(const std::string &lo, const std::string &hi, bool reverse,
                               uint32_t limit, std::vector<KV> *out, bool *more)
{
    json request{{"key", base64_encode(lo)},
                 {"range_end", base64_encode(hi)},
                 {"limit", std::to_string(limit)}};
    if (rev_)
        request["revision"] = std::to_string(rev_);
    if (reverse) {
        request["sort_order"] = "DESCEND";
        request["sort_target"] = "KEY";
    }
    return client_.range(request, out, more);
}

Status EtcdEngine::Walker::refill()
{
    while (!done_) {
        buffer_.clear();
        pos_ = 0;
        if (lo_ >= hi_) {
            done_ = true;
            break;
        }
        std::vector<KV> base;
        bool more = false;
        Status s = e_.base_range(lo_, hi_, reverse_, chunk_, &base, &more);
        if (!s.ok())
            return s;
        more = more && !base.empty();
        // The part of the range that the fetched chunk covers whole.
        std::string wlo = lo_, whi = hi_;
        if (more)
            (reverse_ ? wlo : whi) = reverse_ ? base.back().key : base.back().key + '\0';
        if (reverse_)
            std::reverse(base.begin(), base.end());
        auto o = e_.overlay_.lower_bound(wlo);
        auto oend = e_.overlay_.lower_bound(whi);
        size_t b = 0;
        while (b < base.size() || o != oend) {
            if (o == oend || (b < base.size() && base[b].key < o->first)) {
                buffer_.push_back(std::move(base[b++]));
                continue;
            }
            if (b < base.size() && base[b].key == o->first)
                b++;
            if (o->second)
                buffer_.push_back(KV{o->first, *o->second});
            ++o;
        }
        if (reverse_)
            std::reverse(buffer_.begin(), buffer_.end());
        (reverse_ ? hi_ : lo_) = reverse_ ? wlo : whi;
        done_ = !more;
        if (!buffer_.empty())
            break;
    }
    return ok_status();
}

Status EtcdEngine::Walker::next(const KV **kv)
{
    if (pos_ >= buffer_.size()) {
        Status s = refill();
        if (!s.ok())
            return s;
    }
    *kv = pos_ < buffer_.size() ? &buffer_[pos_++] : nullptr;
    return ok_status();
}

Status EtcdEngine::decode_node(const KV &kv, Node *node) const
{
    uint32_t datatype = 0;
    std::string_view in = kv.value;
    if (!get_u32(&in, &datatype))
        return error(TARVO_ERR_STORE_CORRUPT, "short node value in etcd");
    node->path = kv.key.substr(root_.size() + 1);
    node->datatype = static_cast<int32_t>(datatype);
    if (node->is_dir())
        node->path += '/';
    node->value.assign(in);
    return ok_status();
}

bool add(Page *page, Node node, uint32_t max_entries, uint64_t max_bytes, uint64_t *bytes)
{
    if (page->entries.size() >= max_entries || (!page->entries.empty() && *bytes >= max_bytes)) {
        page->remain = true;
        return false;
    }
    *bytes += node.path.size() + node.value.size();
    page->entries.push_back(std::move(node));
    return true;
}

// One entry past the page, so that a full page knows whether more remain
// without a second request.
uint32_t chunk_for(uint32_t max_entries)
{
    return std::clamp<uint32_t>(max_entries < UINT32_MAX ? max_entries + 1 : max_entries, 16,
                                ETCD_MAX_CHUNK + 1);
}

Status EtcdEngine::lookup(std::string_view path, Node *node)
{
    if (path == "/") {
        *node = Node{"/", TARVO_DATATYPE_DIR, {}};
        return ok_status();
    }
    Scope scope(*this);
    if (!scope.status.ok())
        return scope.status;
    KV kv{node_at(path), {}};
    bool found = false;
    Status s = read_key(kv.key, &kv.value, &found);
    if (!s.ok())
        return s;
    if (!found)
        return error(TARVO_ERR_NOT_FOUND, std::string(path));
    return decode_node(kv, node);
}

Status EtcdEngine::list(std::string_view dir, const ListQuery &q, Page *page)
{
    *page = Page{};
    Scope scope(*this);
    if (!scope.status.ok())
        return scope.status;
    if (dir != "/") {
        Node node;
        Status s = lookup(dir.substr(0, dir.size() - 1), &node);
        if (!s.ok())
            return s;
        if (!node.is_dir())
            return error(TARVO_ERR_NOT_A_DIR, node.path);
    }
    const std::string base = root_ + "n" + std::string(dir);
    std::string lo = base, hi = prefix_end(base);
    if (!q.start.empty() && !q.reverse)
        lo = base + q.start + (q.exclusive ? std::string(1, '\0') : std::string());
    if (!q.start.empty() && q.reverse)
        hi = q.exclusive ? base + q.start : base + q.start + '\0';
    Walker walker(*this, lo, hi, q.reverse, chunk_for(q.max_entries));
    uint64_t bytes = 0;
    for (;;) {
        const KV *kv = nullptr;
        Status s = walker.next(&kv);
        if (!s.ok())
            return s;
        if (!kv)
            break;
        size_t slash = kv->key.find('/', base.size());
        if (slash != std::string::npos) {
            // Below a subdirectory: go past its subtree.
            std::string child = kv->key.substr(0, slash + 1);
            walker.skip_to(q.reverse ? child : prefix_end(child));
            continue;
        }
        Node node;
        s = decode_node(*kv, &node);
        if (!s.ok())
            return s;
        if (!q.with_values)
            node.value.clear();
        if (!add(page, std::move(node), q.max_entries, q.max_bytes, &bytes))
            break;
    }
    return ok_status();
}

Status EtcdEngine::scan(std::string_view dir, const ScanQuery &q, Page *page)
{
    *page = Page{};
    NodeSelector selector;
    Status s = selector.compile(dir, q);
    if (!s.ok())
        return s;
    Scope scope(*this);
    if (!scope.status.ok())
        return scope.status;
    const std::string nodes = root_ + "n";
    std::string lo = nodes + std::string(dir) + '\0', hi = nodes + subtree_end(dir);
    if (!q.start.empty()) {
        const std::string start = nodes + node_key(q.start);
        if (!q.reverse)
            lo = std::max(lo, q.exclusive ? start + '\0' : start);
        else
            hi = std::min(hi, q.exclusive ? start : start + '\0');
    }
    Walker walker(*this, lo, hi, q.reverse, q.match.kind == PathMatch::Kind::ALL &&
                                                     q.filter.terms.empty() && q.items && q.dirs
                                                 ? chunk_for(q.max_entries)
                                                 : 1000);
    uint64_t bytes = 0;
    for (;;) {
        const KV *kv = nullptr;
        s = walker.next(&kv);
        if (!s.ok())
            return s;
        if (!kv)
            break;
        Node node;
        s = decode_node(*kv, &node);
        if (!s.ok())
            return s;
        if (!(node.is_dir() ? q.dirs : q.items) || !selector.keeps(node_key(node.path), node.datatype))
            continue;
        if (!q.with_values)
            node.value.clear();
        if (!add(page, std::move(node), q.max_entries, q.max_bytes, &bytes))
            break;
    }
    return ok_status();
}

Status EtcdEngine::events_after(uint64_t after, uint32_t max, std::vector<Event> *events)
{
    Scope scope(*this);
    if (!scope.status.ok())
        return scope.status;
    const std::string base = events_at();
    Walker walker(*this, base + hex16(after + 1), prefix_end(base), false, chunk_for(max));
    while (events->size() < max) {
        const KV *kv = nullptr;
        Status s = walker.next(&kv);
        if (!s.ok())
            return s;
        if (!kv)
            break;
        Event e;
        if (!decode_event(kv->value, std::strtoull(kv->key.c_str() + base.size(), nullptr, 16), &e))
            return error(TARVO_ERR_STORE_CORRUPT, "bad event record in etcd");
        events->push_back(std::move(e));
    }
    return ok_status();
}

Status EtcdEngine::find_events(std::string_view dir, const ScanQuery &query, EventPage *page)
{
    // The log holds at most the event window: read it whole and order it here.
    std::vector<Event> all;
    Scope scope(*this);
    if (!scope.status.ok())
        return scope.status;
    for (;;) {
        size_t before = all.size();
        Status s = events_after(all.empty() ? 0 : all.back().seq, 1000, &all);
        if (!s.ok())
            return s;
        if (all.size() - before < 1000)
            break;
    }
    return find_events_in(all, dir, query, page);
}

Status EtcdEngine::ping()
{
    Scope scope(*this);
    return scope.status;
}

Status EtcdEngine::stats(StoreStats *out)
{
    *out = StoreStats{};
    {
        Scope scope(*this);
        if (!scope.status.ok())
            return scope.status;
        const std::string nodes = root_ + "n";
        Walker walker(*this, nodes, prefix_end(nodes), false, 1000);
        for (;;) {
            const KV *kv = nullptr;
            Status s = walker.next(&kv);
            if (!s.ok())
                return s;
            if (!kv)
                break;
            Node node;
            if (decode_node(*kv, &node).ok())
                ++(node.is_dir() ? out->dirs : out->items);
        }
        std::vector<Event> first;
        Status s = events_after(0, 1, &first);
        if (!s.ok())
            return s;
        if (!first.empty()) {
            out->first_event = first.front().seq;
            out->last_event = seq_;
            out->events = seq_ - out->first_event + 1;
        }
    }
    std::vector<Lock> held;
    Status s = locks(&held);
    out->locks = held.size();
    return s;
}

// ---- Writes ----

Status EtcdEngine::begin_write()
{
    end_write();
    conflict_ = false;
    Status s = pin(true);
    if (!s.ok()) {
        rev_ = 0;
        return s;
    }
    in_write_ = true;
    return ok_status();
}

void EtcdEngine::end_write()
{
    in_write_ = false;
    rev_ = 0;
    trim_below_ = 0;
    overlay_.clear();
    events_.clear();
}

void EtcdEngine::rollback_write() { end_write(); }

Status EtcdEngine::put_node(const Node &node)
{
    Status s = fault();
    if (!s.ok())
        return s;
    std::string value;
    put_u32(&value, static_cast<uint32_t>(node.datatype));
    value += node.value;
    overlay_[node_at(node.path)] = std::move(value);
    return ok_status();
}

Status EtcdEngine::erase_node(std::string_view path)
{
    Status s = fault();
    if (!s.ok())
        return s;
    overlay_[node_at(path)] = std::nullopt;
    return ok_status();
}

Status EtcdEngine::append_event(const Event &event)
{
    Status s = fault();
    if (!s.ok())
        return s;
    events_.push_back(event);
    seq_ = event.seq ? event.seq : seq_ + 1;
    events_.back().seq = seq_;
    return ok_status();
}

Status EtcdEngine::trim_events()
{
    if (seq_ > options_.event_window)
        trim_below_ = seq_ - options_.event_window + 1;
    return ok_status();
}

Status EtcdEngine::get_record(Table table, std::string_view key, std::string *value)
{
    Scope scope(*this);
    if (!scope.status.ok())
        return scope.status;
    bool found = false;
    Status s = read_key(record_at(table, key), value, &found);
    if (s.ok() && !found)
        return error(TARVO_ERR_NOT_FOUND);
    return s;
}

Status EtcdEngine::put_record(Table table, std::string_view key, std::string_view value)
{
    Status s = fault();
    if (!s.ok())
        return s;
    overlay_[record_at(table, key)] = std::string(value);
    return ok_status();
}

Status EtcdEngine::erase_record(Table table, std::string_view key)
{
    Status s = fault();
    if (!s.ok())
        return s;
    overlay_[record_at(table, key)] = std::nullopt;
    return ok_status();
}

Status EtcdEngine::clear_records(Table table)
{
    Status s = fault();
    std::vector<Record> records;
    if (s.ok())
        s = read_records(table, "", UINT32_MAX, &records);
    for (const Record &r : records)
        overlay_[record_at(table, r.key)] = std::nullopt;
    return s;
}

Status EtcdEngine::read_records(Table table, std::string_view after, uint32_t max,
                                std::vector<Record> *records)
{
    Scope scope(*this);
    if (!scope.status.ok())
        return scope.status;
    const std::string base = record_at(table, "");
    Walker walker(*this, after.empty() ? base : record_at(table, after) + '\0', prefix_end(base),
                  false, chunk_for(max));
    while (records->size() < max) {
        const KV *kv = nullptr;
        Status s = walker.next(&kv);
        if (!s.ok())
            return s;
        if (!kv)
            break;
        records->push_back(Record{kv->key.substr(base.size()), kv->value});
    }
    return ok_status();
}

Status EtcdEngine::ensure_lease()
{
    if (lease_)
        return ok_status();
    json answer;
    Status s = client_.call("/v3/lease/grant", json{{"TTL", std::to_string(LEASE_TTL_S)}}, &answer);
    if (!s.ok())
        return s;
    lease_ = number(field(answer, "ID"));
    if (!lease_)
        return error(TARVO_ERR_STORE, "etcd granted no lease");
    keeper_ = std::make_unique<LeaseKeeper>(endpoints_, lease_);
    return ok_status();
}

Status EtcdEngine::commit_write()
{
    Status s = fault();
    if (!s.ok())
        return s;
    std::vector<json> ops;
    const std::string locks = record_at(Table::LOCKS, "");
    for (const auto &[key, value] : overlay_) {
        if (!value) {
            ops.push_back(json{{"request_delete_range", {{"key", base64_encode(key)}}}});
            continue;
        }
        json put{{"key", base64_encode(key)}, {"value", base64_encode(*value)}};
        if (key.compare(0, locks.size(), locks) == 0) {
            s = ensure_lease();
            if (!s.ok())
                return s;
            put["lease"] = std::to_string(lease_);
        }
        ops.push_back(json{{"request_put", std::move(put)}});
    }
    for (const Event &e : events_)
        ops.push_back(json{{"request_put",
                            {{"key", base64_encode(events_at() + hex16(e.seq))},
                             {"value", base64_encode(encode_event(e))}}}});
    if (trim_below_)
        ops.push_back(json{{"request_delete_range",
                            {{"key", base64_encode(events_at())},
                             {"range_end", base64_encode(events_at() + hex16(trim_below_))}}}});
    ops.push_back(json{{"request_put", {{"key", base64_encode(meta("seq"))},
                                        {"value", base64_encode(std::to_string(seq_))}}}});
    ops.push_back(json{{"request_put", {{"key", base64_encode(meta("version"))}, {"value", ""}}}});
    json compare = json::array({json{{"target", "MOD"},
                                     {"key", base64_encode(meta("version"))},
                                     {"result", "EQUAL"},
                                     {"mod_revision", std::to_string(version_mod_)}},
                                json{{"target", "VERSION"},
                                     {"key", base64_encode(meta("bulk"))},
                                     {"result", "EQUAL"},
                                     {"version", "0"}}});
    int64_t revision = 0;
    s = commit_steps(compare, ops, &revision);
    if (s.ok()) {
        // The commit's revision is m/version's new mod revision, and the
        // nodes there are the pinned ones with this write's changes.
        if (revision > 0 && cacheable_) {
            for (const auto &[key, value] : overlay_)
                if (cache_for(key) == &nodes_)
                    nodes_.apply(key, value);
            nodes_mod_ = revision;
        } else {
            nodes_.clear();
            nodes_mod_ = -1;
        }
        end_write();
    }
    else if (s.detail.find("lease not found") != std::string::npos) {
        // The lease ran out (the process stood still): take a new one.
        keeper_.reset();
        lease_ = 0;
        conflict_ = true;
    }
    return s;
}

Status EtcdEngine::commit_steps(const json &compare, std::vector<json> &ops, int64_t *revision)
{
    size_t bytes = 0;
    for (const json &op : ops)
        bytes += op.dump().size();
    bool succeeded = false;
    if (ops.size() <= ETCD_MAX_OPS && bytes <= ETCD_MAX_BYTES) {
        json answer;
        Status s = txn(compare, json(ops), &succeeded, &answer);
        if (s.ok() && !succeeded) {
            conflict_ = true;
            return error(TARVO_ERR_BUSY, "the shared plane changed during the write");
        }
        if (s.ok())
            *revision = number(field(field(answer, "header"), "revision"));
        return s;
    }
    Status s = ensure_lease();
    if (!s.ok())
        return s;
    json claim = json::array(
        {json{{"request_put", {{"key", base64_encode(meta("bulk"))},
                               {"value", base64_encode(std::to_string(rev_))}}}},
         json{{"request_put", {{"key", base64_encode(meta("owner"))},
                               {"value", ""},
                               {"lease", std::to_string(lease_)}}}}});
    s = txn(compare, claim, &succeeded);
    if (s.ok() && !succeeded) {
        conflict_ = true;
        return error(TARVO_ERR_BUSY, "the shared plane changed during the write");
    }
    if (!s.ok())
        return s;
    ops.push_back(json{{"request_delete_range", {{"key", base64_encode(meta("owner"))}}}});
    ops.push_back(json{{"request_delete_range", {{"key", base64_encode(meta("bulk"))}}}});
    json owned = json::array({json{{"target", "VERSION"},
                                   {"key", base64_encode(meta("owner"))},
                                   {"result", "GREATER"},
                                   {"version", "0"}}});
    size_t i = 0;
    while (i < ops.size()) {
        json chunk = json::array();
        size_t chunk_bytes = 0;
        for (; i < ops.size() && chunk.size() < ETCD_MAX_OPS; i++) {
            size_t n = ops[i].dump().size();
            if (!chunk.empty() && chunk_bytes + n > ETCD_MAX_BYTES)
                break;
            chunk_bytes += n;
            chunk.push_back(std::move(ops[i]));
        }
        s = txn(owned, chunk, &succeeded);
        if (s.ok() && !succeeded)
            s = error(TARVO_ERR_STORE, "the claim of a large write ran out before its end");
        if (!s.ok())
            return s;  // the next writer puts the plane back as it was
    }
    return ok_status();
}

// Runs a write again while it lost the race against another writer.
class EtcdStore final : public Store {
public:
    EtcdStore(std::unique_ptr<EtcdEngine> engine, int busy_timeout_ms)
        : e_(std::move(engine)), busy_timeout_ms_(busy_timeout_ms)
    {
    }

    Status lookup(std::string_view path, Node *node) override { return e_->lookup(path, node); }
    Status list(std::string_view dir, const ListQuery &q, Page *page) override
    {
        return e_->list(dir, q, page);
    }
    Status scan(std::string_view dir, const ScanQuery &q, Page *page) override
    {
        return e_->scan(dir, q, page);
    }
    Status apply(const Batch &batch, ApplyResult *result) override
    {
        return retry([&] { return e_->apply(batch, result); });
    }
    Status events_after(uint64_t after, uint32_t max, std::vector<Event> *events) override
    {
        return e_->events_after(after, max, events);
    }
    Status find_events(std::string_view dir, const ScanQuery &q, EventPage *page) override
    {
        return e_->find_events(dir, q, page);
    }
    Status lock(std::string_view path, LockMode mode, const Holder &holder) override
    {
        return retry([&] { return e_->lock(path, mode, holder); });
    }
    Status unlock(std::string_view path, const Holder &holder) override
    {
        return retry([&] { return e_->unlock(path, holder); });
    }
    Status unlock_all(const Holder &holder) override
    {
        return retry([&] { return e_->unlock_all(holder); });
    }
    Status locks(std::vector<Lock> *locks) override { return e_->locks(locks); }
    Status errors(ErrorList list, uint64_t after, uint32_t max,
                  std::vector<ErrorEntry> *entries) override
    {
        return e_->errors(list, after, max, entries);
    }
    Status clear_errors(ErrorList list) override
    {
        return retry([&] { return e_->clear_errors(list); });
    }
    Status end_issu(uint64_t *checked, uint64_t *failures) override
    {
        return retry([&] { return e_->end_issu(checked, failures); });
    }
    Status ping() override { return e_->ping(); }
    Status check(std::vector<std::string> *problems) override { return e_->check(problems); }
    Status stats(StoreStats *stats) override { return e_->stats(stats); }

private:
    template <typename F>
    Status retry(F run)
    {
        const int64_t deadline = now_ms() + busy_timeout_ms_;
        int64_t pause_ms = 1;
        for (;;) {
            Status s = run();
            if (!e_->conflict() || now_ms() >= deadline)
                return s;
            std::this_thread::sleep_for(std::chrono::milliseconds(pause_ms));
            pause_ms = std::min<int64_t>(pause_ms * 2, 50);
        }
    }

    std::unique_ptr<EtcdEngine> e_;
    int busy_timeout_ms_;
};

}  // namespace

Status open_etcd_store(const std::string &location, const StoreOptions &options,
                       std::unique_ptr<Store> *store)
{
    std::vector<std::string> endpoints;
    std::string prefix;
    Status s = parse_etcd_location(location, &endpoints, &prefix);
    if (!s.ok())
        return s;
    auto engine = std::make_unique<EtcdEngine>(endpoints, prefix, options);
    s = engine->ping();
    if (!s.ok())
        return error(TARVO_ERR_STORE, "etcd cluster " + location + " does not answer: " + s.detail);
    *store = std::make_unique<EtcdStore>(std::move(engine), options.busy_timeout_ms);
    return ok_status();
}

}  // namespace tarvo
