// Randomized model test: thousands of random creates, sets, deletes,
// subtree deletes, pattern deletes, conditional deletes and copies run
// against a store and against a std::map model of the items; every result
// code is compared, and now and then the whole tree is compared through
// list() (small random batches) and scan(). A second run injects write
// faults: a failed batch must leave the store exactly as the model says.
//
// The third backend is a bind's pending changes: the operations run against
// a PendingStore laid over an SQLite store, reads go through the merged
// view, and at random moments the operations collected so far are committed
// to the SQLite store in one batch, which must give the same results.
//
// The etcd backend runs when TARVO_TEST_ETCD names a cluster (the etcd
// ctest starts one), each test under a prefix of its own.
#include <gtest/gtest.h>

#include <map>
#include <random>
#include <set>

#include "paths.h"
#include "pending.h"
#include "store.h"
#include "test_helpers.h"

namespace tarvo {
namespace {

using Model = std::map<std::string, std::pair<int32_t, std::string>>;

class RandomFaults : public FaultPlan {
public:
    RandomFaults(uint32_t seed, double rate) : rng_(seed), rate_(rate) {}
    bool fail_write() override
    {
        if (!armed)
            return false;
        return std::uniform_real_distribution<double>(0, 1)(rng_) < rate_;
    }
    bool armed = false;

private:
    std::mt19937 rng_;
    double rate_;
};

// The model's view of the tree.
struct Tree {
    Model items;

    bool is_item(const std::string &p) const { return items.count(p) != 0; }
    bool is_dir(const std::string &p) const
    {
        if (p == "/")
            return true;
        auto it = items.lower_bound(p + "/");
        return it != items.end() && it->first.compare(0, p.size() + 1, p + "/") == 0;
    }
    bool under_item(const std::string &p) const
    {
        for (const std::string &d : ancestor_dirs(p))
            if (is_item(d.substr(0, d.size() - 1)))
                return true;
        return false;
    }
    // The code a create would give.
    int32_t create_code(const std::string &p) const
    {
        if (is_item(p))
            return TARVO_ERR_EXISTS;
        if (is_dir(p))
            return TARVO_ERR_IS_DIR;
        if (under_item(p))
            return TARVO_ERR_UNDER_ITEM;
        return 0;
    }
    int32_t set_code(const std::string &p, int32_t dt, bool create) const
    {
        if (is_dir(p))
            return TARVO_ERR_IS_DIR;
        auto it = items.find(p);
        if (it == items.end())
            return create ? create_code(p) : TARVO_ERR_NOT_FOUND;
        return it->second.first == dt ? 0 : TARVO_ERR_WRONG_DATATYPE;
    }
    std::vector<std::string> below(const std::string &dir) const
    {
        std::vector<std::string> out;
        for (auto it = items.lower_bound(dir); it != items.end() &&
                                                it->first.compare(0, dir.size(), dir) == 0;
             ++it)
            out.push_back(it->first);
        return out;
    }
    // Every node in path order, directories with their "/".
    std::vector<std::string> all_nodes() const
    {
        std::set<std::string> nodes;
        for (const auto &item : items) {
            nodes.insert(item.first);
            for (const std::string &d : ancestor_dirs(item.first))
                nodes.insert(d);
        }
        return {nodes.begin(), nodes.end()};
    }
};

// Pending changes over a store: requests run against the overlay and are
// kept; commit() applies them to the store underneath in one batch.
class PendingBackend : public FaultStore {
public:
    explicit PendingBackend(std::unique_ptr<Store> base)
        : FaultStore(std::move(base)), view_(std::make_unique<PendingStore>(inner()))
    {
    }
    Status lookup(std::string_view path, Node *node) override { return view_->lookup(path, node); }
    Status list(std::string_view dir, const ListQuery &q, Page *page) override
    {
        return view_->list(dir, q, page);
    }
    Status scan(std::string_view dir, const ScanQuery &q, Page *page) override
    {
        return view_->scan(dir, q, page);
    }
    Status apply(const Batch &batch, ApplyResult *result) override
    {
        Status s = view_->apply(batch, result);
        if (s.ok()) {
            log_.ops.insert(log_.ops.end(), batch.ops.begin(), batch.ops.end());
            changes_ += result->changes;
            failures_ += result->failures.size();
        }
        return s;
    }
    // The commit gives the same changes and refusals as the requests did.
    void commit()
    {
        log_.atomic = false;
        ApplyResult result;
        ASSERT_TRUE(inner().apply(log_, &result).ok());
        EXPECT_EQ(changes_, result.changes);
        EXPECT_EQ(failures_, result.failures.size());
        log_ = Batch{};
        changes_ = failures_ = 0;
        view_ = std::make_unique<PendingStore>(inner());
    }

private:
    std::unique_ptr<PendingStore> view_;
    Batch log_;
    uint64_t changes_ = 0, failures_ = 0;
};

enum class Backend { SQLITE, MEMORY, PENDING, ETCD };

class ModelTest : public ::testing::TestWithParam<Backend> {
protected:
    void SetUp() override
    {
        options_.event_window = 1u << 30;
        options_.faults = &faults_;
        if (GetParam() == Backend::MEMORY) {
            store_ = new_memory_store(options_);
            return;
        }
        if (GetParam() == Backend::ETCD) {
            const char *cluster = std::getenv("TARVO_TEST_ETCD");
            if (!cluster || !*cluster)
                GTEST_SKIP() << "TARVO_TEST_ETCD names no etcd cluster";
            const auto *info = ::testing::UnitTest::GetInstance()->current_test_info();
            std::string location = std::string(cluster) + "/model-" + std::to_string(getpid()) +
                                   "-" + info->name();
            ASSERT_TRUE(open_etcd_store(location, options_, &store_).ok());
            return;
        }
        ASSERT_TRUE(open_sqlite_store(dir_.path() + "/m.db", options_, &store_).ok());
        if (GetParam() == Backend::PENDING) {
            auto pending = std::make_unique<PendingBackend>(std::move(store_));
            pending_ = pending.get();
            store_ = std::move(pending);
        }
    }
    void commit_now_and_then(bool always)
    {
        if (pending_ && (always || rng_() % 40 == 0)) {
            ASSERT_NO_FATAL_FAILURE(pending_->commit());
        }
    }

    std::string random_path(bool dir_form = false)
    {
        static const char *names[] = {"a", "b", "c", "ab"};
        int depth = 1 + rng_() % 3;
        std::string p;
        for (int i = 0; i < depth; ++i)
            p += std::string("/") + names[rng_() % 4];
        return dir_form ? p + "/" : p;
    }
    std::pair<int32_t, std::string> random_value()
    {
        if (rng_() % 2)
            return {TARVO_DATATYPE_UINT32, std::string(4, static_cast<char>('0' + rng_() % 3))};
        return {TARVO_DATATYPE_STRING, std::string(1 + rng_() % 3, 'v') + '\0'};
    }

    Status apply(Op op, bool atomic, ApplyResult *result)
    {
        Batch batch;
        batch.atomic = atomic;
        batch.ops.push_back(std::move(op));
        return store_->apply(batch, result);
    }

    void step();
    void compare_all();

    test::TempDir dir_{"tarvo-model"};
    RandomFaults faults_{1234, 0.02};
    StoreOptions options_;
    std::unique_ptr<Store> store_;
    PendingBackend *pending_ = nullptr;
    std::mt19937 rng_{42};
    Tree model_;
    uint64_t changes_ = 0;
    int faulted_ = 0;
};

void ModelTest::step()
{
    Op op;
    Tree next = model_;
    int32_t expect = 0;
    uint64_t expect_changes = 0;
    size_t expect_failures = 0;
    bool atomic = rng_() % 2;
    auto [dt, value] = random_value();
    switch (rng_() % 10) {
    case 0:
    case 1:
    case 2: {
        op.kind = OpKind::CREATE;
        op.path = random_path();
        expect = model_.create_code(op.path);
        if (!expect)
            next.items[op.path] = {dt, value};
        break;
    }
    case 3:
    case 4: {
        op.kind = OpKind::SET;
        op.path = random_path();
        op.create_missing = rng_() % 2;
        expect = model_.set_code(op.path, dt, op.create_missing);
        if (!expect)
            next.items[op.path] = {dt, value};
        break;
    }
    case 5: {
        op.kind = OpKind::DELETE;
        op.path = random_path();
        expect = model_.is_item(op.path) ? 0
                 : model_.is_dir(op.path) ? TARVO_ERR_IS_DIR
                                          : TARVO_ERR_NOT_FOUND;
        next.items.erase(op.path);
        break;
    }
    case 6: {
        op.kind = OpKind::DELETE_IF_EQUAL;
        op.path = random_path();
        auto it = model_.items.find(op.path);
        expect = it != model_.items.end()
                     ? (it->second == std::make_pair(dt, value) ? 0 : TARVO_ERR_VALUE_DIFFERS)
                 : model_.is_dir(op.path) ? TARVO_ERR_IS_DIR
                                          : TARVO_ERR_NOT_FOUND;
        if (!expect)
            next.items.erase(op.path);
        break;
    }
    case 7: {
        op.kind = OpKind::DELETE_TREE;
        op.path = rng_() % 8 ? random_path(true) : "/";
        std::string item = op.path == "/" ? "/" : op.path.substr(0, op.path.size() - 1);
        bool filtered = rng_() % 2;
        // Keep items whose relative path ends in "b".
        if (filtered) {
            op.extra().match.kind = PathMatch::Kind::REGEXP;
            op.extra().match.text = ".*b";
        }
        if (model_.is_item(item))
            expect = TARVO_ERR_NOT_A_DIR;
        else if (!model_.is_dir(item))
            expect = TARVO_ERR_NOT_FOUND;
        for (const std::string &p : model_.below(op.path))
            if (!expect && (!filtered || p.back() == 'b'))
                next.items.erase(p);
        break;
    }
    default: {
        op.kind = OpKind::COPY;
        std::string from = random_path(), to = random_path(true);
        op.path = from;
        op.extra().target = to;
        if (model_.is_item(from)) {
            std::string target = to + std::string(leaf_name(from));
            auto [fdt, fval] = model_.items[from];
            expect = model_.set_code(target, fdt, true);
            if (!expect)
                next.items[target] = {fdt, fval};
            expect_changes = expect ? 0 : 1;
        } else if (!model_.is_dir(from)) {
            expect = TARVO_ERR_NOT_FOUND;
        } else if (to.compare(0, from.size() + 1, from + "/") == 0 ||
                   (from + "/").compare(0, to.size(), to) == 0) {
            expect = TARVO_ERR_BAD_ARGUMENT;
        } else {
            for (const std::string &p : model_.below(from + "/")) {
                std::string target = to + p.substr(from.size() + 1);
                auto [fdt, fval] = model_.items[p];
                int32_t code = next.set_code(target, fdt, true);
                if (code) {
                    ++expect_failures;
                    if (atomic && !expect)
                        expect = code;
                    continue;
                }
                next.items[target] = {fdt, fval};
                ++expect_changes;
            }
            if (atomic && expect) {
                expect_failures = 0;
            }
        }
        break;
    }
    }
    if (op.kind != OpKind::COPY && op.kind != OpKind::DELETE_TREE)
        expect_changes = expect ? 0 : 1;
    if (op.kind == OpKind::DELETE_TREE && !expect)
        expect_changes = model_.items.size() - next.items.size();
    op.datatype = dt;
    op.value = value;
    ApplyResult result;
    Status s = apply(op, atomic, &result);
    if (s.code == TARVO_ERR_STORE) {
        ASSERT_TRUE(faults_.armed) << s.detail;
        ++faulted_;
        return;  // nothing changed: the model stays as it was
    }
    // A refused operation of a non-atomic batch is a recorded failure of a
    // batch that succeeded; item failures inside a copy name the target.
    if (s.ok() && !atomic && !result.failures.empty() && result.failures[0].path == op.path) {
        ASSERT_EQ(1u, result.failures.size());
        ASSERT_EQ(0u, result.changes);
        s = result.failures[0].status;
        result.failures.clear();
    }
    ASSERT_EQ(expect, s.code) << static_cast<int>(op.kind) << " " << op.path << " -> " << op.extra().target << ": " << s.detail;
    if (s.ok()) {
        EXPECT_EQ(expect_changes, result.changes) << op.path;
        EXPECT_EQ(expect_failures, result.failures.size()) << op.path;
        model_ = std::move(next);
        changes_ += result.changes;
    }
}

void ModelTest::compare_all()
{
    // Directory by directory through list(), in random small batches, with
    // the keyset continuation a caller uses.
    std::vector<std::string> seen;
    std::vector<std::string> dirs = {"/"};
    while (!dirs.empty()) {
        std::string dir = dirs.back();
        dirs.pop_back();
        ListQuery q;
        q.max_entries = 1 + rng_() % 4;
        for (;;) {
            Page page;
            ASSERT_TRUE(store_->list(dir, q, &page).ok()) << dir;
            for (const Node &n : page.entries) {
                seen.push_back(n.path);
                if (n.is_dir())
                    dirs.push_back(n.path);
                else
                    EXPECT_EQ(model_.items.at(n.path), std::make_pair(n.datatype, n.value));
                q.start = std::string(leaf_name(n.path));
                q.exclusive = true;
            }
            if (!page.remain)
                break;
        }
    }
    std::sort(seen.begin(), seen.end());
    ASSERT_EQ(model_.all_nodes(), seen);
    // The same tree, in reverse path order through scan().
    std::vector<std::string> scanned;
    ScanQuery sq;
    sq.dirs = true;
    sq.reverse = true;
    sq.max_entries = 5;
    for (;;) {
        Page page;
        ASSERT_TRUE(store_->scan("/", sq, &page).ok());
        for (const Node &n : page.entries) {
            scanned.insert(scanned.begin(), n.path);
            sq.start = n.path;
            sq.exclusive = true;
        }
        if (!page.remain)
            break;
    }
    ASSERT_EQ(model_.all_nodes(), scanned);
    ASSERT_NO_FATAL_FAILURE(commit_now_and_then(true));
    std::vector<std::string> problems;
    ASSERT_TRUE(store_->check(&problems).ok());
    EXPECT_TRUE(problems.empty()) << problems.front();
    StoreStats stats;
    ASSERT_TRUE(store_->stats(&stats).ok());
    EXPECT_EQ(model_.items.size(), stats.items);
    EXPECT_EQ(changes_, stats.events);
}

TEST_P(ModelTest, RandomOperationsMatchTheModel)
{
    size_t largest = 0;
    for (int i = 0; i < 4000; ++i) {
        ASSERT_NO_FATAL_FAILURE(step()) << "step " << i;
        ASSERT_NO_FATAL_FAILURE(commit_now_and_then(false)) << "step " << i;
        largest = std::max(largest, model_.items.size());
        if (i % 250 == 0) {
            ASSERT_NO_FATAL_FAILURE(compare_all()) << "step " << i;
        }
    }
    compare_all();
    // The random mix must keep the tree busy, or the comparison proves little.
    EXPECT_GT(changes_, 1500u);
    EXPECT_GT(largest, 20u);
    std::printf("changes %llu, largest tree %zu items\n",
                static_cast<unsigned long long>(changes_), largest);
}

TEST_P(ModelTest, FailedWritesChangeNothing)
{
    if (GetParam() == Backend::PENDING)
        GTEST_SKIP() << "the overlay has no store writes to fail";
    faults_.armed = true;
    for (int i = 0; i < 3000; ++i) {
        ASSERT_NO_FATAL_FAILURE(step()) << "step " << i;
        if (i % 250 == 0) {
            faults_.armed = false;
            ASSERT_NO_FATAL_FAILURE(compare_all()) << "step " << i;
            faults_.armed = true;
        }
    }
    faults_.armed = false;
    compare_all();
    EXPECT_GT(faulted_, 50);
}

INSTANTIATE_TEST_SUITE_P(Backends, ModelTest,
                         ::testing::Values(Backend::SQLITE, Backend::MEMORY, Backend::PENDING,
                                           Backend::ETCD),
                         [](const auto &info) {
                             return info.param == Backend::SQLITE    ? "Sqlite"
                                    : info.param == Backend::MEMORY  ? "Memory"
                                    : info.param == Backend::PENDING ? "Pending"
                                                                     : "Etcd";
                         });

}  // namespace
}  // namespace tarvo
