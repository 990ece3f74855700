# shellcheck shell=bash
# Builds the documentation and checks it.

# What is made of the public headers and of the Python package: the command, and its file.
readonly made_texts=(
    "node tools/completion_codes.mjs page" docs/completion_codes.md
    "node tools/completion_codes.mjs tables" Classes/Model/KvPimCodeTables.cpp
    "/usr/bin/python3 tools/python_sync.py" python/kvpim/sync.py
    "/usr/bin/python3 tools/python_reference.py" docs/python.md
)

# each_made_text COMMAND: calls it with each of them.
each_made_text() {
    local i
    for ((i = 0; i < ${#made_texts[@]}; i += 2)); do
        "$1" "${made_texts[@]:i:2}" || return
    done
}

check_made() {
    $1 | cmp -s - "$2" || fail "$2 is out of date: ./run docs"
}

make_anew() {
    local text
    text=$($1) || return
    [[ $text == "$(<"$2")" ]] || printf '%s\n' "$text" >"$2"
}

# readme_block LANGUAGE: the first block of code in this language that README.md shows.
readme_block() { awk -v fence='```'"$1" '$0 == fence { shown = 1; next } shown && /^```$/ { exit } shown' README.md; }

# Whether a compiler takes the C++ that README.md and the guides show, with the headers that customers have and nothing
# but what the page itself includes.
guides_compile() {
    local files flags
    configure dev && cmake build >/dev/null || return  # which copies the headers
    mapfile -t files < <(node tools/code_blocks.mjs build/code_blocks README.md docs/*.md)
    ((${#files[@]} > 0)) || return
    read -ra flags <<<"$(pkg-config --cflags glib-2.0 Qt6Core)"
    printf '%s\0' "${files[@]}" | xargs -0 -n 1 -P "$(compile_jobs)" \
        c++ -std=c++20 -fsyntax-only -fPIC -Wall -Wextra -Wno-unused -Werror -I build/include "${flags[@]}"
}

# Fails if README.md shows another program than the one that is compiled, if code of a guide does not compile, if a text is
# not what it is made of says, or if a link in a Markdown page leads nowhere.
check_pages() {
    guides_compile || fail "The guides show code that does not compile."
    readme_block cpp | diff - examples/first_steps.cpp || fail "README.md shows another program."
    each_made_text check_made || return
    find . '(' -path './build*' -o -name node_modules ')' -prune -o -name '*.md' -print0 |
        xargs -0 node tools/check_links.mjs
}

# The guides and the reference: build/docs/index.html.
build_docs() {
    local output=build/docs pages version
    configure dev && cmake build >/dev/null || return  # which copies the headers
    each_made_text make_anew || return
    version=$(project_version)
    rm -rf "$output"
    mkdir -p "$output"
    KVPIM_VERSION=$version run_job doxygen docs/Doxyfile || return
    # Fields and aliases need no words of their own when their name and their record's say it all.
    ! grep -vE '\((variable|typedef)\) of (class|struct) .* is not documented\.$' "$output/warnings.log" >&2 || return
    mapfile -t pages < <(find "$output" -name '*.html')
    node tools/check_links.mjs "${pages[@]}" && check_pages
}
