// A small terminal model: enough of a VT100/xterm to see what line editing
// leaves on the screen.

#include "pty_session.h"

#include <algorithm>
#include <string>

namespace tarvo::test {

namespace {

class Screen {
public:
    Screen(unsigned short rows, unsigned short cols)
        : rows_(std::max<int>(rows, 1)), cols_(std::max<int>(cols, 1)),
          cells_(static_cast<size_t>(rows_), std::string(static_cast<size_t>(cols_), ' ')) {}

    void feed(std::string_view out) {
        for (size_t i = 0; i < out.size(); ++i) {
            unsigned char ch = static_cast<unsigned char>(out[i]);
            if (ch == 0x1b)
                i = escape(out, i);
            else
                control_or_print(ch);
        }
    }

    std::vector<std::string> rows() const {
        std::vector<std::string> out;
        for (const std::string &row : cells_) {
            size_t end = row.find_last_not_of(' ');
            out.push_back(end == std::string::npos ? "" : row.substr(0, end + 1));
        }
        return out;
    }
    int cursor_row() const { return row_; }

private:
    void control_or_print(unsigned char ch) {
        switch (ch) {
        case '\r': col_ = 0; wrap_ = false; return;
        case '\n': case 0x0b: case 0x0c: line_feed(); return;
        case '\b': if (col_ > 0) --col_; wrap_ = false; return;
        case '\t': col_ = std::min(cols_ - 1, (col_ / 8 + 1) * 8); return;
        default: break;
        }
        if (ch < 0x20 || ch == 0x7f)
            return;  // bells and other controls leave no mark
        if (wrap_) {  // deferred wrap, as xterm does at the right margin
            col_ = 0;
            line_feed();
            wrap_ = false;
        }
        cells_[static_cast<size_t>(row_)][static_cast<size_t>(col_)] = static_cast<char>(ch);
        if (col_ == cols_ - 1)
            wrap_ = true;
        else
            ++col_;
    }

    void line_feed() {
        if (row_ == rows_ - 1) {
            cells_.erase(cells_.begin());
            cells_.push_back(std::string(static_cast<size_t>(cols_), ' '));
        } else {
            ++row_;
        }
    }

    // Handles the sequence starting at out[i] (ESC); returns its last index.
    size_t escape(std::string_view out, size_t i) {
        if (i + 1 >= out.size())
            return i;
        char kind = out[i + 1];
        if (kind == '[')
            return csi(out, i + 2);
        if (kind == ']') {  // operating system command: up to BEL or ESC '\'
            size_t j = i + 2;
            while (j < out.size() && out[j] != '\a' &&
                   !(out[j] == 0x1b && j + 1 < out.size() && out[j + 1] == '\\'))
                ++j;
            return j < out.size() && out[j] == 0x1b ? j + 1 : j;
        }
        if (kind == '(' || kind == ')' || kind == '#')
            return std::min(i + 2, out.size() - 1);
        if (kind == '7') { saved_row_ = row_; saved_col_ = col_; }
        if (kind == '8') { row_ = saved_row_; col_ = saved_col_; wrap_ = false; }
        if (kind == 'M') {  // reverse index
            if (row_ == 0) {
                cells_.pop_back();
                cells_.insert(cells_.begin(), std::string(static_cast<size_t>(cols_), ' '));
            } else {
                --row_;
            }
        }
        if (kind == 'D') line_feed();
        if (kind == 'E') { col_ = 0; line_feed(); }
        return i + 1;
    }

    size_t csi(std::string_view out, size_t j) {
        std::vector<int> params;
        int value = -1;
        bool is_private = false;
        for (; j < out.size(); ++j) {
            char c = out[j];
            if (c >= '0' && c <= '9') {
                value = (value < 0 ? 0 : value * 10) + (c - '0');
            } else if (c == ';') {
                params.push_back(value);
                value = -1;
            } else if (c == '?' || c == '>' || c == '=' || c == '!') {
                is_private = true;
            } else if (c >= 0x40 && c <= 0x7e) {
                params.push_back(value);
                if (!is_private)
                    apply(c, params);
                return j;
            }
        }
        return out.size() - 1;
    }

    static int arg(const std::vector<int> &p, size_t i, int fallback) {
        return i < p.size() && p[i] > 0 ? p[i] : fallback;
    }

    void erase(int row, int from, int to) {
        std::string &line = cells_[static_cast<size_t>(row)];
        for (int c = std::max(0, from); c < std::min(cols_, to); ++c)
            line[static_cast<size_t>(c)] = ' ';
    }

    void apply(char final, const std::vector<int> &p) {
        int n = arg(p, 0, 1);
        std::string &line = cells_[static_cast<size_t>(row_)];
        wrap_ = false;
        switch (final) {
        case 'A': row_ = std::max(0, row_ - n); break;
        case 'B': case 'e': row_ = std::min(rows_ - 1, row_ + n); break;
        case 'C': case 'a': col_ = std::min(cols_ - 1, col_ + n); break;
        case 'D': col_ = std::max(0, col_ - n); break;
        case 'E': row_ = std::min(rows_ - 1, row_ + n); col_ = 0; break;
        case 'F': row_ = std::max(0, row_ - n); col_ = 0; break;
        case 'G': case '`': col_ = std::min(cols_ - 1, n - 1); break;
        case 'd': row_ = std::min(rows_ - 1, n - 1); break;
        case 'H': case 'f':
            row_ = std::min(rows_ - 1, arg(p, 0, 1) - 1);
            col_ = std::min(cols_ - 1, arg(p, 1, 1) - 1);
            break;
        case 'J': {
            int mode = p.empty() || p[0] < 0 ? 0 : p[0];
            if (mode == 0) {
                erase(row_, col_, cols_);
                for (int r = row_ + 1; r < rows_; ++r) erase(r, 0, cols_);
            } else if (mode == 1) {
                erase(row_, 0, col_ + 1);
                for (int r = 0; r < row_; ++r) erase(r, 0, cols_);
            } else {
                for (int r = 0; r < rows_; ++r) erase(r, 0, cols_);
            }
            break;
        }
        case 'K': {
            int mode = p.empty() || p[0] < 0 ? 0 : p[0];
            if (mode == 0) erase(row_, col_, cols_);
            else if (mode == 1) erase(row_, 0, col_ + 1);
            else erase(row_, 0, cols_);
            break;
        }
        case 'P':  // delete characters, the rest moves left
            line.erase(static_cast<size_t>(col_), static_cast<size_t>(std::min(n, cols_ - col_)));
            line.resize(static_cast<size_t>(cols_), ' ');
            break;
        case '@':  // insert blanks
            line.insert(static_cast<size_t>(col_), static_cast<size_t>(std::min(n, cols_ - col_)), ' ');
            line.resize(static_cast<size_t>(cols_));
            break;
        case 'X': erase(row_, col_, col_ + n); break;
        case 'L':
            for (int k = 0; k < n; ++k) {
                cells_.insert(cells_.begin() + row_, std::string(static_cast<size_t>(cols_), ' '));
                cells_.pop_back();
            }
            break;
        case 'M':
            for (int k = 0; k < n; ++k) {
                cells_.erase(cells_.begin() + row_);
                cells_.push_back(std::string(static_cast<size_t>(cols_), ' '));
            }
            break;
        default: break;  // colours, modes, scroll regions: no effect on text
        }
    }

    int rows_, cols_;
    std::vector<std::string> cells_;
    int row_ = 0, col_ = 0;
    int saved_row_ = 0, saved_col_ = 0;
    bool wrap_ = false;
};

} // namespace

std::vector<std::string> render_screen(std::string_view output, unsigned short rows,
                                       unsigned short cols, int *cursor_row) {
    Screen screen(rows, cols);
    screen.feed(output);
    if (cursor_row != nullptr)
        *cursor_row = screen.cursor_row();
    return screen.rows();
}

// Here rather than in pty_session.cpp so that a test program that never
// looks at the screen can build the session alone.
std::vector<std::string> PtySession::screen() {
    return render_screen(output(), rows_, cols_);
}

} // namespace tarvo::test
