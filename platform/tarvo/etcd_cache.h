// EtcdReadCache: what the etcd backend knows of the keys at one state of the
// cluster, so that a read the cache can answer costs no request.
//
// Contract: the cache holds point values (found or known absent) and one
// span [lo, hi) of which it holds every key, in byte order. It never decides
// when its contents are valid: the store clears it when the state it
// describes may have changed (see etcd_store.cpp), and lays its own
// committed changes over it with apply(). Plain data, one thread at a time.
#ifndef TARVO_ETCD_CACHE_H
#define TARVO_ETCD_CACHE_H

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "etcd_client.h"

namespace tarvo {

class EtcdReadCache {
public:
    void clear();
    // 1: the key is there (*value set); 0: it is known to be absent;
    // -1: the cache does not know.
    int find(const std::string &key, std::string *value) const;
    void remember(const std::string &key, const std::optional<std::string> &value);
    // The keys of [lo, hi) in byte order, at most `limit` of them, appended
    // to *out. True when the cache answered whole (*more: keys of the range
    // remain past those given). False when it knows only the keys it gave
    // (maybe none): *resume is then the first key it knows nothing about.
    bool range(const std::string &lo, const std::string &hi, uint32_t limit,
               std::vector<KV> *out, bool *more, std::string *resume) const;
    // Every key of [lo, end), fetched. Extends the span when lo is its end,
    // replaces it otherwise; keys before `keep_from` may be dropped.
    void add_span(const std::string &lo, const std::string &end, std::vector<KV> kvs,
                  const std::string &keep_from);
    // A committed change (nullopt: the key was deleted).
    void apply(const std::string &key, const std::optional<std::string> &value);
    // Whether a fetch from `lo` continues the span (a listing going on).
    bool continues(const std::string &lo) const { return !span_hi_.empty() && lo == span_hi_; }

private:
    std::map<std::string, std::optional<std::string>> points_;
    std::string span_lo_, span_hi_;  // span_hi_ empty: no span
    std::vector<KV> span_;
};

}  // namespace tarvo

#endif
