// The terminal line editor on libedit.
//
// Keys (emacs bindings otherwise):
//   Enter        ends the line                      GETLINE_ENTER
//   TAB          hands back the line for completion GETLINE_COMPLETE
//   ?            hands back the line for help       GETLINE_HELP
//   Ctrl-C       discards the line                  GETLINE_DISCARD
//   Ctrl-D       end of input on an empty line, else deletes under the cursor
//   Ctrl-V       inserts the next key as it is (a literal "?" or TAB)
//   Ctrl-Z, Ctrl-\ stop / quit the program (sent by the editor: the
//                terminal's signal keys are off while a line is edited)
// Why each piece is there: docs/line-editor.md.

#include <platform/getline.h>

#include <histedit.h>

#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <cwchar>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

#include "history_file.h"
#include "reader.h"

namespace tarvo::getline {

namespace {

// Pressed (by the editor itself, through el_push) to insert the pre-filled
// text. Inserting it with el_insertstr means none of its characters is
// taken as a key; it cannot simply be inserted before el_gets, which clears
// the line when it starts.
constexpr char PREFILL_KEY[] = "\x1f";

constexpr int HISTORY_SIZE = 1000;
// A kept history file is cut back to HISTORY_SIZE after this many lines.
constexpr size_t HISTORY_TRIM_EVERY = 100;

class Editor final : public Reader {
public:
    explicit Editor(FILE *out) : out_(out) {}
    ~Editor() override {
        if (el_ != nullptr) {
            // el_end would reset the terminal with TCSAFLUSH and so throw
            // away what the user typed ahead; it is in its normal modes
            // already after every read.
            el_set(el_, EL_EDITMODE, 0);
            el_end(el_);
        }
        if (history_ != nullptr)
            history_end(history_);
    }

    bool init();
    std::optional<ReadResult> read(const std::string &prompt, const char *prefill) override;
    void add_history(const std::string &line) override;
    int keep_history(const std::string &name) override;

private:
    static Editor *self(EditLine *el) {
        void *data = nullptr;
        el_get(el, EL_CLIENTDATA, &data);
        return static_cast<Editor *>(data);
    }
    static char *prompt_fn(EditLine *el) { return self(el)->prompt_.data(); }
    static int getc_fn(EditLine *el, wchar_t *out);
    static unsigned char complete_key(EditLine *el, int);
    static unsigned char help_key(EditLine *el, int);
    static unsigned char discard_key(EditLine *el, int);
    static unsigned char eof_key(EditLine *el, int);
    static unsigned char prefill_key(EditLine *el, int);
    static unsigned char suspend_key(EditLine *el, int);
    static unsigned char quit_key(EditLine *el, int);

    unsigned char end_line_below(uint8_t status);
    void erase_edit_area();
    int terminal_columns() const;
    const char *read_quietly(int *count);

    EditLine *el_ = nullptr;
    History *history_ = nullptr;
    std::unique_ptr<HistoryFile> history_file_;  // null: history in memory only
    FILE *out_;
    std::string prompt_;
    std::string prefill_;
    bool prefill_pending_ = false;
    uint8_t status_ = GETLINE_ENTER;
    bool ended_by_key_ = false;
    size_t rows_above_cursor_ = 0;  // of the edit area, when TAB ended it
    std::mbstate_t decode_state_{};
};

bool Editor::init() {
    history_ = history_init();
    if (history_ == nullptr)
        return false;
    HistEvent event;
    history(history_, &event, H_SETSIZE, HISTORY_SIZE);
    history(history_, &event, H_SETUNIQUE, 1);

    el_ = el_init("tarvocon", stdin, out_, stderr);
    if (el_ == nullptr)
        return false;
    el_set(el_, EL_CLIENTDATA, this);
    el_set(el_, EL_EDITOR, "emacs");
    el_set(el_, EL_PROMPT, &Editor::prompt_fn);
    el_set(el_, EL_HIST, history, history_);
    el_set(el_, EL_GETCFN, &Editor::getc_fn);
    // libedit restores the terminal before a signal that stops or ends the
    // process takes effect, and redraws after SIGCONT and SIGWINCH.
    el_set(el_, EL_SIGNAL, 1);
    // Ctrl-C must reach the editor as a key, not as SIGINT. The terminal
    // cannot be told to drop only the interrupt key (libedit does not pass
    // key settings on to the edit mode), so while a line is edited no key
    // makes a signal; Ctrl-Z and Ctrl-\ send theirs from the editor.
    el_set(el_, EL_SETTY, "-d", "-isig", nullptr);

    // The wide call keeps the (static) names as given; the narrow one
    // copies them and never frees the copies.
    el_wset(el_, EL_ADDFN, L"tarvo-complete", L"hand the line back for completion",
            &Editor::complete_key);
    el_wset(el_, EL_ADDFN, L"tarvo-help", L"hand the line back for help", &Editor::help_key);
    el_wset(el_, EL_ADDFN, L"tarvo-discard", L"discard the line", &Editor::discard_key);
    el_wset(el_, EL_ADDFN, L"tarvo-eof", L"end of input on an empty line", &Editor::eof_key);
    el_wset(el_, EL_ADDFN, L"tarvo-suspend", L"stop the program", &Editor::suspend_key);
    el_wset(el_, EL_ADDFN, L"tarvo-quit", L"quit the program", &Editor::quit_key);
    el_wset(el_, EL_ADDFN, L"tarvo-prefill", L"insert the pre-filled line",
            &Editor::prefill_key);
    el_set(el_, EL_BIND, "^I", "tarvo-complete", nullptr);
    el_set(el_, EL_BIND, "?", "tarvo-help", nullptr);
    el_set(el_, EL_BIND, "^C", "tarvo-discard", nullptr);
    el_set(el_, EL_BIND, "^D", "tarvo-eof", nullptr);
    el_set(el_, EL_BIND, "^Z", "tarvo-suspend", nullptr);
    el_set(el_, EL_BIND, "^\\", "tarvo-quit", nullptr);
    el_set(el_, EL_BIND, PREFILL_KEY, "tarvo-prefill", nullptr);
    el_set(el_, EL_BIND, "^V", "ed-quoted-insert", nullptr);
    el_set(el_, EL_BIND, "^R", "em-inc-search-prev", nullptr);
    return true;
}

// Reads one character, retrying reads interrupted by signals (a SIGCHLD
// from a pager that ended must not end the line). Bytes that are not valid
// in the current locale are taken one by one as they are.
int Editor::getc_fn(EditLine *el, wchar_t *out) {
    Editor *ed = self(el);
    for (;;) {
        char byte;
        ssize_t got = ::read(STDIN_FILENO, &byte, 1);
        if (got < 0 && errno == EINTR)
            continue;
        if (got <= 0)
            return got == 0 ? 0 : -1;
        wchar_t wc = 0;
        size_t used = std::mbrtowc(&wc, &byte, 1, &ed->decode_state_);
        if (used == static_cast<size_t>(-2))
            continue;  // more bytes of this character to come
        if (used == static_cast<size_t>(-1)) {
            ed->decode_state_ = std::mbstate_t{};
            wc = static_cast<unsigned char>(byte);
        }
        *out = wc;
        return 1;
    }
}

// Ends the line the way Enter does: the cursor moves below the edit area
// and a fresh line starts. A pushed newline runs libedit's own ed-newline,
// the one function that knows where the edit area ends on the screen.
unsigned char Editor::end_line_below(uint8_t status) {
    status_ = status;
    ended_by_key_ = true;
    el_push(el_, "\n");
    return CC_NORM;
}

unsigned char Editor::complete_key(EditLine *el, int) {
    Editor *ed = self(el);
    // The completed line is redrawn where this one stands, so the cursor
    // has to come back to the start of the edit area afterwards.
    const LineInfo *line = el_line(el);
    int cols = ed->terminal_columns();
    size_t before_cursor = ed->prompt_.size() + static_cast<size_t>(line->cursor - line->buffer);
    ed->rows_above_cursor_ = before_cursor / static_cast<size_t>(cols);
    ed->status_ = GETLINE_COMPLETE;
    ed->ended_by_key_ = true;  // an empty line is still a line here
    return CC_NEWLINE;
}

unsigned char Editor::help_key(EditLine *el, int) {
    return self(el)->end_line_below(GETLINE_HELP);
}

unsigned char Editor::discard_key(EditLine *el, int) {
    Editor *ed = self(el);
    // Show "^C" at the end of what was typed, as a terminal would.
    const LineInfo *line = el_line(el);
    el_cursor(el, static_cast<int>(line->lastchar - line->cursor));
    el_insertstr(el, "^C");
    ed->end_line_below(GETLINE_DISCARD);
    return CC_REFRESH;
}

// The signal goes to the process group, as the terminal would send it.
// libedit's handlers put the terminal back first, and after SIGCONT switch
// to editing again and redraw the line.
unsigned char Editor::suspend_key(EditLine *, int) {
    ::kill(0, SIGTSTP);
    return CC_NORM;
}

unsigned char Editor::quit_key(EditLine *, int) {
    ::kill(0, SIGQUIT);
    return CC_NORM;
}

unsigned char Editor::eof_key(EditLine *el, int) {
    const LineInfo *line = el_line(el);
    if (line->buffer == line->lastchar)
        return CC_EOF;
    if (line->cursor == line->lastchar)
        return CC_ERROR;  // nothing under the cursor: beep
    el_cursor(el, 1);
    el_deletestr(el, 1);
    return CC_REFRESH;
}

unsigned char Editor::prefill_key(EditLine *el, int) {
    Editor *ed = self(el);
    if (!ed->prefill_pending_)
        return CC_ERROR;  // typed by the user: it means nothing
    ed->prefill_pending_ = false;
    if (el_insertstr(el, ed->prefill_.c_str()) != 0)
        return CC_ERROR;
    return CC_REFRESH;
}

int Editor::terminal_columns() const {
    winsize size{};
    if (::ioctl(fileno(out_), TIOCGWINSZ, &size) != 0 || size.ws_col == 0)
        return 80;  // what libedit assumes too
    return size.ws_col;
}

// After TAB: cursor back to the first row of the edit area, which is then
// cleared, so the next read draws the completed line in its place. On a
// terminal that cannot move the cursor up, the next read starts on a new
// line instead.
void Editor::erase_edit_area() {
    std::fputc('\r', out_);
    std::fflush(out_);
    bool moved = true;
    for (size_t i = 0; i < rows_above_cursor_ && moved; ++i)
        moved = el_set(el_, EL_ECHOTC, "up", nullptr) == 0;
    if (!moved || el_set(el_, EL_ECHOTC, "cd", nullptr) != 0) {
        std::fputc('\n', out_);
    }
    std::fflush(out_);
}

// libedit shows the prompt first and only then switches the terminal to
// its editing modes. Keys arriving in between would be handled by the
// terminal itself: echoed twice, a Ctrl-C turned into SIGINT, a long paste
// cut at the terminal's line limit. So the terminal stops interpreting
// keys before el_gets starts, and gets its own modes back afterwards.
const char *Editor::read_quietly(int *count) {
    termios normal{};
    bool have_modes = ::tcgetattr(STDIN_FILENO, &normal) == 0;
    if (have_modes) {
        termios quiet = normal;
        quiet.c_lflag &= ~static_cast<tcflag_t>(ICANON | ECHO | ISIG);
        quiet.c_cc[VMIN] = 1;
        quiet.c_cc[VTIME] = 0;
        ::tcsetattr(STDIN_FILENO, TCSANOW, &quiet);
    }
    const char *text = el_gets(el_, count);
    if (have_modes)
        ::tcsetattr(STDIN_FILENO, TCSADRAIN, &normal);
    return text;
}

std::optional<ReadResult> Editor::read(const std::string &prompt, const char *prefill) {
    prompt_ = prompt;
    status_ = GETLINE_ENTER;
    ended_by_key_ = false;
    prefill_pending_ = prefill != nullptr && *prefill != '\0';
    prefill_ = prefill_pending_ ? prefill : "";
    decode_state_ = std::mbstate_t{};
    el_resize(el_);
    if (prefill_pending_)
        el_push(el_, PREFILL_KEY);

    int count = 0;
    const char *text = read_quietly(&count);
    prefill_pending_ = false;
    if (!ended_by_key_ && (text == nullptr || count <= 0)) {
        // End of input: leave the terminal on a fresh line for whatever
        // the program prints next.
        std::fputc('\n', out_);
        std::fflush(out_);
        return std::nullopt;
    }
    std::string line = text != nullptr && count > 0 ? std::string(text, static_cast<size_t>(count))
                                                    : std::string();
    if (!line.empty() && line.back() == '\n')
        line.pop_back();
    if (status_ == GETLINE_COMPLETE)
        erase_edit_area();
    if (status_ == GETLINE_DISCARD)
        line.clear();
    return ReadResult{std::move(line), status_};
}

void Editor::add_history(const std::string &line) {
    HistEvent event;
    // A repeat of the newest entry is not added, so neither is it kept.
    if (history(history_, &event, H_FIRST) == 0 && line == event.str)
        return;
    history(history_, &event, H_ENTER, line.c_str());
    if (history_file_ != nullptr)
        history_file_->append(line);
}

int Editor::keep_history(const std::string &name) {
    if (history_file_ != nullptr)
        return EALREADY;
    int error = 0;
    auto file = HistoryFile::open(name, &error,
                                  HistoryFile::Limits{HISTORY_SIZE, HISTORY_TRIM_EVERY});
    if (file == nullptr)
        return error;
    HistEvent event;
    for (const std::string &entry : file->load())
        history(history_, &event, H_ENTER, entry.c_str());
    history_file_ = std::move(file);
    return 0;
}

} // namespace

std::unique_ptr<Reader> make_editor() {
    // The edit area is drawn on standard output when that is the terminal,
    // else on standard error, so that output sent to a file does not fill
    // with prompts and cursor movements.
    FILE *out = ::isatty(STDOUT_FILENO) ? stdout : stderr;
    auto editor = std::make_unique<Editor>(out);
    if (!editor->init())
        return nullptr;
    return editor;
}

} // namespace tarvo::getline
