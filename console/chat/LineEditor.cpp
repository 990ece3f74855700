#include "console/chat/LineEditor.h"

#include <algorithm>
#include <clocale>
#include <cstdio>
#include <cwchar>
#include <string_view>

#include <sys/ioctl.h>
#include <unistd.h>

namespace kv::console {
namespace {

constexpr int kHistorySize = 500;
constexpr std::size_t kLongestPaste = 32'768;
constexpr char kMarkPastes[] = "\x1b[?2004h";
constexpr char kMarkNoPastes[] = "\x1b[?2004l";
constexpr std::string_view kEndOfPaste = "\x1b[201~";

int columnsOf(wchar_t character) {
    int const columns = ::wcwidth(character);
    return columns < 0 ? 2 : columns;  // a control character is shown as "^X"
}

int columnsOf(std::string const& text) {
    std::wstring wide(text.size(), L'\0');
    char const* from = text.c_str();
    std::mbstate_t state{};
    // NOLINTNEXTLINE(concurrency-mt-unsafe): safe with a state of one's own
    auto const length = std::mbsrtowcs(wide.data(), &from, wide.size(), &state);
    if (length == static_cast<std::size_t>(-1)) return static_cast<int>(text.size());
    int columns = 0;
    for (std::size_t i = 0; i < length; ++i) columns += columnsOf(wide[i]);
    return columns;
}

}  // namespace

LineEditor::LineEditor(std::FILE* screen, std::function<bool()> awaitKey)
    : screen_(screen), awaitKey_(std::move(awaitKey)), history_(history_init()) {
    // NOLINTNEXTLINE(concurrency-mt-unsafe): the other threads do not ask for the locale
    if (std::setlocale(LC_CTYPE, "") == nullptr || MB_CUR_MAX == 1) std::setlocale(LC_CTYPE, "C.UTF-8");
    HistEvent event;
    history(history_, &event, H_SETSIZE, kHistorySize);
    history(history_, &event, H_SETUNIQUE, 1);
    editor_ = el_init("kvpim", stdin, screen, screen);
    el_set(editor_, EL_CLIENTDATA, this);
    el_set(editor_, EL_PROMPT, &LineEditor::promptOf);
    el_set(editor_, EL_EDITOR, "emacs");
    el_set(editor_, EL_HIST, history, history_);
    el_set(editor_, EL_ADDFN, "kv-complete", "complete the word", &LineEditor::onTab);
    el_set(editor_, EL_BIND, "^I", "kv-complete", nullptr);
    el_set(editor_, EL_ADDFN, "kv-paste", "take what is pasted as one line", &LineEditor::onPaste);
    el_set(editor_, EL_BIND, "\\e[200~", "kv-paste", nullptr);
    el_set(editor_, EL_GETCFN, static_cast<int (*)(EditLine*, wchar_t*)>(&LineEditor::readKey));
}

LineEditor::~LineEditor() {
    el_end(editor_);
    history_end(history_);
}

std::optional<std::string> LineEditor::readLine() {
    int count = 0;
    std::fputs(kMarkPastes, screen_);
    char const* const typed = el_gets(editor_, &count);
    std::fputs(kMarkNoPastes, screen_);
    std::fflush(screen_);
    isEditing_ = false;
    if (typed == nullptr || count <= 0) return std::nullopt;
    std::string line(typed, static_cast<std::size_t>(count));
    line.erase(std::find_if(line.begin(), line.end(), [](char c) { return c == '\n' || c == '\r'; }), line.end());
    HistEvent event;
    if (!line.empty()) history(history_, &event, H_ENTER, line.c_str());
    return line;
}

void LineEditor::hide() {
    if (!isEditing_) return;
    if (int const row = rowOfCursor(); row > 0) std::fprintf(screen_, "\x1b[%dA", row);
    std::fputs("\r\x1b[J", screen_);
}

void LineEditor::show() {
    std::fflush(screen_);
    if (isEditing_) el_set(editor_, EL_REFRESH);
}

void LineEditor::suspend() {
    hide();
    std::fputs(kMarkNoPastes, screen_);
    std::fflush(screen_);
    el_set(editor_, EL_PREP_TERM, 0);
}

void LineEditor::resume() {
    if (isEditing_) el_set(editor_, EL_PREP_TERM, 1);
    std::fputs(kMarkPastes, screen_);
    show();
}

void LineEditor::onResized() {
    hide();
    el_resize(editor_);
    show();
}

LineEditor& LineEditor::of(EditLine* editor) {
    LineEditor* self = nullptr;
    el_get(editor, EL_CLIENTDATA, &self);
    return *self;
}

char* LineEditor::promptOf(EditLine* editor) { return of(editor).prompt_.data(); }

int LineEditor::readKey(EditLine* editor, wchar_t* key) { return of(editor).readKey(*key) ? 1 : 0; }

unsigned char LineEditor::onTab(EditLine* editor, int) { return of(editor).complete(); }

unsigned char LineEditor::onPaste(EditLine* editor, int) { return of(editor).paste(); }

// What all that is possible has in common is put in; when that is nothing more, the possible is shown.
unsigned char LineEditor::complete() {
    auto const* const line = el_line(editor_);
    std::string_view const before(line->buffer, static_cast<std::size_t>(line->cursor - line->buffer));
    std::string const word(before.substr(before.find_last_of(" \t") + 1));
    std::vector<std::string> possible;
    if (completions_) possible = completions_(before);
    std::erase_if(possible, [&](std::string const& one) { return !one.starts_with(word); });
    if (possible.empty()) return CC_ERROR;
    std::string common = possible.front();
    for (auto const& one : possible) {
        common.erase(std::ranges::mismatch(common, one).in1, common.end());
    }
    if (possible.size() == 1) common += ' ';
    if (common.size() > word.size()) {
        return el_insertstr(editor_, common.substr(word.size()).c_str()) == 0 ? CC_REFRESH : CC_ERROR;
    }
    hide();
    for (auto const& one : possible) std::fprintf(screen_, "%s  ", one.c_str());
    std::fputs("\n", screen_);
    return CC_REDISPLAY;
}

// Nothing that is pasted is sent, or taken for a key, before the user has seen it.
unsigned char LineEditor::paste() {
    std::string text;
    while (!text.ends_with(kEndOfPaste)) {
        char byte = 0;
        if (!awaitKey_() || ::read(STDIN_FILENO, &byte, 1) != 1) return CC_EOF;
        text += byte;
        if (text.size() > kLongestPaste + kEndOfPaste.size()) text.erase(kLongestPaste, 1);
    }
    text.resize(text.size() - kEndOfPaste.size());
    std::ranges::replace_if(
        text, [](char c) { return static_cast<unsigned char>(c) < ' ' || c == 0x7F; }, ' ');
    return el_insertstr(editor_, text.c_str()) == 0 ? CC_REFRESH : CC_ERROR;
}

bool LineEditor::readKey(wchar_t& key) {
    std::mbstate_t state{};
    isEditing_ = true;
    while (awaitKey_()) {
        char byte = 0;
        if (::read(STDIN_FILENO, &byte, 1) != 1) return false;
        // NOLINTNEXTLINE(concurrency-mt-unsafe): safe with a state of one's own
        auto const length = std::mbrtowc(&key, &byte, 1, &state);
        if (length == static_cast<std::size_t>(-2)) continue;  // the character has more bytes
        if (length != static_cast<std::size_t>(-1)) return true;
        state = {};
    }
    return false;
}

int LineEditor::rowOfCursor() const {
    winsize size{};
    if (::ioctl(::fileno(screen_), TIOCGWINSZ, &size) != 0 || size.ws_col == 0) return 0;
    auto const* const line = el_wline(editor_);
    int columns = columnsOf(prompt_);
    for (auto const* c = line->buffer; c != line->cursor; ++c) columns += columnsOf(*c);
    return columns / size.ws_col;
}

}  // namespace kv::console
