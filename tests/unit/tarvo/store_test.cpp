// The store under the API: damaged and foreign files, the data directory,
// file modes, settings, the event window, injected store failures and
// tarvoctl.
#include <gtest/gtest.h>
#include <sqlite3.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include <fstream>
#include <map>
#include <sstream>

#include "bind.h"
#include "settings.h"
#include "test_util.h"

namespace {

using tarvo_test::Bound;
using tarvo_test::DataDir;

int bind_code(const char *point = "/", uint32_t options = 0)
{
    tarvo_bind_h_td h = nullptr;
    int rc = _tarvo_bind(&h, point, options);
    if (!rc)
        _tarvo_unbind(h);
    return rc;
}

void sql(const std::string &file, const char *statement)
{
    sqlite3 *db = nullptr;
    ASSERT_EQ(SQLITE_OK, sqlite3_open(file.c_str(), &db));
    EXPECT_EQ(SQLITE_OK, sqlite3_exec(db, statement, nullptr, nullptr, nullptr)) << sqlite3_errmsg(db);
    sqlite3_close(db);
}

TEST(Store, DamagedOrForeignFiles)
{
    struct Case {
        const char *what;
        std::function<void(const std::string &)> damage;
        int32_t code;
    } cases[] = {
        {"garbage", [](const std::string &f) { std::ofstream(f) << std::string(5000, 'g'); },
         TARVO_ERR_STORE_CORRUPT},
        {"foreign database", [](const std::string &f) { sql(f, "CREATE TABLE x(y)"); },
         TARVO_ERR_STORE_CORRUPT},
        {"older schema",
         [](const std::string &f) {
             ASSERT_EQ(0, bind_code());
             sql(f, "UPDATE meta SET value='1' WHERE key='schema_version'");
         },
         TARVO_ERR_STORE_CORRUPT},
        {"missing table",
         [](const std::string &f) {
             ASSERT_EQ(0, bind_code());
             sql(f, "DROP TABLE records");
         },
         TARVO_ERR_STORE_CORRUPT},
        {"a directory in the way",
         [](const std::string &f) { std::filesystem::create_directory(f); }, TARVO_ERR_DATA_DIR},
        {"empty file", [](const std::string &f) { std::ofstream{f}; }, 0},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.what);
        DataDir dir;
        c.damage(dir.path() + "/shared.db");
        EXPECT_EQ(c.code, bind_code());
        // Other planes are not affected.
        EXPECT_EQ(0, bind_code("/", TARVO_BIND_OPTION_LOCAL_PLANE));
    }
}

TEST(Store, DataDirectory)
{
    DataDir dir;
    std::ofstream(dir.path() + "/file") << "x";
    setenv("TARVO_DATA_DIR", (dir.path() + "/file").c_str(), 1);
    EXPECT_EQ(TARVO_ERR_DATA_DIR, bind_code());
    EXPECT_EQ(0, bind_code("", TARVO_BIND_OPTION_SCRATCHPAD));  // needs no directory
    setenv("TARVO_DATA_DIR", (dir.path() + "/made/on/demand").c_str(), 1);
    EXPECT_EQ(0, bind_code());
    EXPECT_TRUE(std::filesystem::exists(dir.path() + "/made/on/demand/shared.db"));
    if (!std::filesystem::exists("/var/lib/tarvo")) {
        unsetenv("TARVO_DATA_DIR");
        std::string home = getenv("HOME") ? getenv("HOME") : "";
        setenv("HOME", dir.path().c_str(), 1);
        EXPECT_EQ(0, bind_code());
        EXPECT_TRUE(std::filesystem::exists(dir.path() + "/.local/state/tarvo/shared.db"));
        setenv("HOME", home.c_str(), 1);
    }
}

mode_t mode_of(const std::string &path)
{
    struct stat st {};
    return ::stat(path.c_str(), &st) == 0 ? st.st_mode & 07777 : 0;
}

// Under the usual umask the store would be readable by every local user.
TEST(Store, FilesArePrivate)
{
    const mode_t umask_before = ::umask(022);
    struct Case {
        const char *what;
        mode_t existing;  // mode of a directory made beforehand, 0: none
        mode_t dir, file;
    } cases[] = {
        {"directory made by the client", 0, 0700, 0600},
        {"directory shared with a group", 02770, 02770, 0660},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.what);
        DataDir top;
        const std::string dir = top.path() + "/data";
        if (c.existing) {
            ASSERT_EQ(0, ::mkdir(dir.c_str(), 0700));
            ASSERT_EQ(0, ::chmod(dir.c_str(), c.existing));
        }
        setenv("TARVO_DATA_DIR", dir.c_str(), 1);
        Bound b;
        ASSERT_EQ(0, b.create_u32("/m", 1));
        ASSERT_TRUE(tarvo::save_setting(dir, "batch_entries", "5").ok());
        EXPECT_EQ(c.dir, mode_of(dir));
        for (const char *name : {"shared.db", "shared.db-wal", "shared.db-shm", "settings"})
            EXPECT_EQ(c.file, mode_of(dir + "/" + name)) << name;
    }
    ::umask(umask_before);
}

TEST(Store, Settings)
{
    DataDir dir;
    struct Case {
        const char *name, *value;
        int32_t code;
    } cases[] = {
        {"batch_entries", "3", 0},      {"batch_entries", "0", TARVO_ERR_BAD_ARGUMENT},
        {"batch_entries", "x", TARVO_ERR_BAD_ARGUMENT}, {"batch_bytes", "4096", 0},
        {"event_window", "5", 0},       {"nonsense", "1", TARVO_ERR_BAD_ARGUMENT},
        {"busy_timeout_ms", "0", 0},
    };
    for (const Case &c : cases)
        EXPECT_EQ(c.code, tarvo::save_setting(dir.path(), c.name, c.value).code) << c.name;
    tarvo::Settings s;
    ASSERT_TRUE(tarvo::load_settings(dir.path(), &s).ok());
    EXPECT_EQ(3u, s.batch_entries);
    EXPECT_EQ(4096u, s.batch_bytes);
    EXPECT_EQ(5u, s.event_window);
    EXPECT_EQ(0u, s.busy_timeout_ms);

    // The event window bounds the log.
    {
        Bound b;
        for (int i = 0; i < 20; ++i)
            ASSERT_EQ(0, b.create_u32(("/w/" + std::to_string(i)).c_str(), i));
        tarvo::StoreStats stats;
        ASSERT_TRUE(b.h->store->stats(&stats).ok());
        EXPECT_EQ(5u, stats.events);
        EXPECT_EQ(20u, stats.last_event);
        // One batch of more changes: only the last five are written, under
        // the numbers they would have had.
        ASSERT_EQ(0, tarvo_bulk_start(b.h, 0));
        for (int i = 0; i < 20; ++i)
            ASSERT_EQ(0, b.create_u32(("/bulk/" + std::to_string(i)).c_str(), i));
        ASSERT_EQ(0, tarvo_bulk_end(b.h));
        std::vector<tarvo::Event> events;
        ASSERT_TRUE(b.h->store->events_after(0, 100, &events).ok());
        ASSERT_EQ(5u, events.size());
        EXPECT_EQ(36u, events.front().seq);
        EXPECT_EQ("/bulk/15", events.front().path);
        EXPECT_EQ(40u, events.back().seq);
        ASSERT_EQ(0, b.create_u32("/w/after", 1));
        ASSERT_TRUE(b.h->store->stats(&stats).ok());
        EXPECT_EQ(41u, stats.last_event);
        EXPECT_EQ(5u, stats.events);
    }
    std::ofstream(dir.path() + "/settings") << "batch_entries three\n";
    EXPECT_EQ(TARVO_ERR_STORE_CORRUPT, bind_code());
}

// A store that fails on demand behind the API; every bind gets a fresh
// memory store holding /f/a .. /f/e.
class Faulty : public ::testing::Test {
protected:
    void SetUp() override
    {
        tarvo::set_store_factory([this](const tarvo_bind_td &, const std::string &,
                                        std::unique_ptr<tarvo::Store> *out) {
            auto store = std::make_unique<tarvo::FaultStore>(tarvo::new_memory_store({}));
            fault = store.get();
            *out = std::move(store);
            return tarvo::ok_status();
        });
        fresh();
    }
    void TearDown() override
    {
        b.reset();
        tarvo::set_store_factory(nullptr);
    }
    void fresh()
    {
        b.reset();
        b = std::make_unique<Bound>("/");
        for (const char *p : {"/f/a", "/f/b", "/f/c", "/f/d", "/f/e"})
            ASSERT_EQ(0, b->create_u32(p, 1));
    }
    DataDir dir;
    tarvo::FaultStore *fault = nullptr;
    std::unique_ptr<Bound> b;
};

TEST_F(Faulty, FailedCallsReportStoreAndChangeNothing)
{
    const std::vector<std::string> before = b->names("/f");
    const std::pair<int, std::string> a_before = b->get("/f/a");
    uint32_t v = 2;
    struct Case {
        const char *what;
        std::function<int()> call;
    } cases[] = {
        {"create", [&] { return b->create_u32("/f/new", 1); }},
        {"set", [&] { return tarvo_item_set(b->h, "/f/a", TARVO_DATATYPE_UINT32, &v, 4, 0); }},
        {"delete", [&] { return tarvo_item_delete(b->h, "/f/a", 0); }},
        {"delete all", [&] { return tarvo_item_delete(b->h, "", 0); }},
        {"copy", [&] { return tarvo_copy(b->h, "/f", "/g", "", 0); }},
        {"get", [&] { return b->get("/f/a").first; }},
    };
    for (const Case &c : cases) {
        // Fail each store call the request makes in turn, until the request
        // runs through without reaching the faulty call.
        for (uint64_t n = 1;; ++n) {
            SCOPED_TRACE(std::string(c.what) + " call " + std::to_string(n));
            fresh();
            uint64_t start = fault->calls();
            fault->fail_call(n);
            int rc = c.call();
            fault->fail_call(0);
            if (fault->calls() - start < n)
                break;
            EXPECT_EQ(TARVO_ERR_STORE, rc);
            EXPECT_NE(std::string::npos, b->error_text(rc).find("injected")) << b->error_text(rc);
            EXPECT_EQ(before, b->names("/f"));
            EXPECT_EQ(a_before, b->get("/f/a"));
            EXPECT_EQ(TARVO_ERR_NOT_FOUND, b->get("/g").first);
        }
    }
}

TEST_F(Faulty, ChunkFetchFailureReachesTheReader)
{
    tarvo_list_h_td list = nullptr;
    ASSERT_EQ(0, tarvo_chunk_list(b->h, "/f", "", 2, &list, 0));
    char *name;
    tarvo_item_datatype_td dt;
    ASSERT_EQ(0, tarvo_list_next(list, &name, &dt, nullptr));
    ASSERT_EQ(0, tarvo_list_next(list, &name, &dt, nullptr));
    fault->fail_all(true);
    EXPECT_EQ(TARVO_ERR_STORE, tarvo_list_next(list, &name, &dt, nullptr));
    fault->fail_all(false);
    // The reader may try again: the list resumes where it stopped.
    ASSERT_EQ(0, tarvo_list_next(list, &name, &dt, nullptr));
    EXPECT_STREQ("c", name);
    tarvo_list_free(list);
}

std::string run(const std::string &command, int *status)
{
    std::string out;
    FILE *p = popen(command.c_str(), "r");
    char buf[512];
    while (p && fgets(buf, sizeof buf, p))
        out += buf;
    *status = p ? WEXITSTATUS(pclose(p)) : -1;
    return out;
}

TEST(Tarvoctl, SettingsCheckAndInfo)
{
    const char *tool = getenv("TARVOCTL");
    if (!tool)
        GTEST_SKIP() << "TARVOCTL not set";
    DataDir dir;
    const std::string ctl = std::string(tool) + " -d " + dir.path() + " ";
    int status = -1;
    EXPECT_EQ("1000\n", run(ctl + "setting batch_entries", &status));
    EXPECT_EQ(0, status);
    EXPECT_EQ("", run(ctl + "setting batch_entries 3", &status));
    EXPECT_EQ(0, status);
    EXPECT_EQ("3\n", run(ctl + "setting batch_entries", &status));
    run(ctl + "setting batch_entries -1 2>/dev/null", &status);
    EXPECT_EQ(1, status);
    run(ctl + "frobnicate 2>/dev/null", &status);
    EXPECT_EQ(2, status);
    Bound b;
    ASSERT_EQ(0, b.create_u32("/a/b", 1));
    ASSERT_EQ(0, tarvo_item_wrlock(b.h, "/a"));
    EXPECT_EQ("shared: ok\nlocal: not created yet\nadmin: not created yet\n",
              run(ctl + "check", &status));
    EXPECT_EQ(0, status);
    std::string info = run(ctl + "info", &status);
    EXPECT_NE(std::string::npos, info.find("setting batch_entries 3\n")) << info;
    EXPECT_NE(std::string::npos, info.find("1 items, 1 directories, 1 events")) << info;
    EXPECT_NE(std::string::npos, info.find("\n  write-lock on /a by " + b.h->holder.name() + "\n"))
        << info;
    // A directory with nothing below it is damage that check reports.
    sql(dir.path() + "/shared.db", "INSERT INTO nodes VALUES('/lonely',-3,NULL)");
    std::string report = run(ctl + "check", &status);
    EXPECT_EQ(1, status);
    EXPECT_NE(std::string::npos, report.find("empty directory /lonely/")) << report;
}

// Name, size and modification time of every file in a directory.
std::map<std::string, std::string> snapshot(const std::string &dir)
{
    std::map<std::string, std::string> files;
    for (const auto &entry : std::filesystem::directory_iterator(dir)) {
        struct stat st {};
        ::stat(entry.path().c_str(), &st);
        files[entry.path().filename()] = std::to_string(st.st_size) + " " +
                                         std::to_string(st.st_mtim.tv_sec) + "." +
                                         std::to_string(st.st_mtim.tv_nsec);
    }
    return files;
}

// check and info only read, whatever state a store file is in, and agree
// with the client about a file that holds no store yet.
TEST(Tarvoctl, CheckAndInfoOnlyRead)
{
    const char *tool = getenv("TARVOCTL");
    if (!tool)
        GTEST_SKIP() << "TARVOCTL not set";
    using Open = std::unique_ptr<Bound>;
    auto two_items = [](Bound &b) {
        ASSERT_EQ(0, b.create_u32("/x/a", 1));
        ASSERT_EQ(0, b.create_u32("/x/b", 2));
    };
    struct Case {
        const char *what;
        std::function<void(const std::string &file, Open &open)> prepare;
        const char *shared;     // check's line for the plane
        const char *info_part;  // in info's line for the plane
    } cases[] = {
        {"empty file (killed in the first bind)",
         [](const std::string &f, Open &) { std::ofstream{f}; }, "shared: not created yet",
         "plane shared: not created yet"},
        {"a header without tables",
         [](const std::string &f, Open &) { sql(f, "PRAGMA journal_mode=WAL"); },
         "shared: not created yet", "plane shared: not created yet"},
        {"closed store", [&](const std::string &, Open &) { Bound b; two_items(b); },
         "shared: ok", "2 items"},
        {"a journal left by a writer killed as it began (its index needs a repair)",
         [&](const std::string &f, Open &) {
             { Bound b; two_items(b); }
             // A journal header without frames, and the index of an empty
             // journal with other salts: as SIGKILL left them in a crash test.
             const unsigned char wal[32] = {
                 0x37, 0x7f, 0x06, 0x82, 0x00, 0x2d, 0xe2, 0x18, 0x00, 0x00, 0x10,
                 0x00, 0x00, 0x00, 0x00, 0x00, 0x6c, 0x53, 0x19, 0x45, 0xe5, 0x53,
                 0xb3, 0xb4, 0x1a, 0x00, 0x56, 0x7f, 0x86, 0x9b, 0x82, 0x09};
             const unsigned char header[48] = {
                 0x18, 0xe2, 0x2d, 0x00, 0, 0, 0, 0, 0, 0, 0, 0, 0x01, 0, 0, 0,
                 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0,
                 0, 0, 0, 0, 0, 0, 0, 0, 0x38, 0x07, 0x18, 0x06, 0x35, 0x93, 0xdb, 0x09};
             std::string index(32768, '\0');
             index.replace(0, 48, reinterpret_cast<const char *>(header), 48);
             index.replace(48, 48, reinterpret_cast<const char *>(header), 48);
             index.replace(108, 12, 12, '\xff');  // read marks 2 to 4 unused
             std::ofstream(f + "-wal", std::ios::binary)
                 .write(reinterpret_cast<const char *>(wal), sizeof wal);
             std::ofstream(f + "-shm", std::ios::binary) << index;
         },
         "shared: ok", "2 items"},
        {"store in use, its changes still in the journal",
         [&](const std::string &, Open &open) {
             open = std::make_unique<Bound>();
             two_items(*open);
         },
         "shared: ok", "2 items"},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.what);
        DataDir dir;
        const std::string ctl = std::string(tool) + " -d " + dir.path() + " ";
        Open open;
        c.prepare(dir.path() + "/shared.db", open);
        const auto before = snapshot(dir.path());
        int status = -1;
        std::string report = run(ctl + "check", &status);
        EXPECT_EQ(std::string(c.shared) + "\nlocal: not created yet\nadmin: not created yet\n",
                  report);
        EXPECT_EQ(0, status);
        std::string info = run(ctl + "info", &status);
        EXPECT_NE(std::string::npos, info.find(c.info_part)) << info;
        EXPECT_EQ(0, status);
        EXPECT_EQ(before, snapshot(dir.path()));
        // The client makes the store in what check called not created yet.
        open.reset();
        EXPECT_EQ(0, bind_code());
        EXPECT_EQ("shared: ok\n", run(ctl + "check", &status).substr(0, 11));
    }
    // Nothing is made for a data directory that does not exist.
    DataDir dir;
    int status = -1;
    run(std::string(tool) + " -d " + dir.path() + "/none info", &status);
    run(std::string(tool) + " -d " + dir.path() + "/none check", &status);
    EXPECT_EQ(0, status);
    EXPECT_FALSE(std::filesystem::exists(dir.path() + "/none"));
}

TEST(Tarvoctl, InfoWarnsAboutOpenPermissions)
{
    const char *tool = getenv("TARVOCTL");
    if (!tool)
        GTEST_SKIP() << "TARVOCTL not set";
    struct Case {
        mode_t dir, file;
        std::vector<std::string> warnings;  // with @ for the directory
    } cases[] = {
        {0700, 0600, {}},
        {02770, 0660, {"warning: the data directory can be written by its group (mode 2770): "
                       "they can replace or remove the stores"}},
        {0777, 0600, {"warning: the data directory can be written by its group and others "
                      "(mode 0777): they can replace or remove the stores"}},
        {0755, 0644, {"warning: @/shared.db can be read by others (mode 0644)"}},
        {0701, 0606, {"warning: @/shared.db can be read and written by others (mode 0606)"}},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(testing::Message() << "directory mode " << std::oct << c.dir);
        DataDir dir;
        ASSERT_EQ(0, bind_code());
        ASSERT_EQ(0, ::chmod(dir.path().c_str(), c.dir));
        ASSERT_EQ(0, ::chmod((dir.path() + "/shared.db").c_str(), c.file));
        int status = -1;
        std::string info = run(std::string(tool) + " -d " + dir.path() + " info", &status);
        EXPECT_EQ(0, status);
        std::string expected;
        for (std::string w : c.warnings) {
            if (w.find('@') != std::string::npos)
                w.replace(w.find('@'), 1, dir.path());
            expected += w + "\n";
        }
        std::string warnings;
        std::istringstream lines(info);
        for (std::string line; std::getline(lines, line);)
            if (line.rfind("warning:", 0) == 0)
                warnings += line + "\n";
        EXPECT_EQ(expected, warnings) << info;
    }
}

}  // namespace
