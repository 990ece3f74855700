# shellcheck shell=bash
# The binary interface: what programs that are linked to the libraries rely upon. debian/abi has what was released, by soname.

abi_folder=debian/abi

# each_library COMMAND: calls it with each library as it was built, with debug information, and its soname.
each_library() {
    local library status=0
    for library in "$package_folder"/*/lib*.so.*.*.*; do
        [[ -f $library && ! -L $library ]] || continue
        "$1" "$library" "$(objdump -p "$library" | sed -nE 's/^ *SONAME +//p')" || status=1
    done
    return $status
}

# Only what public headers show, and what can be reached by a program.
describe_interface() {
    abidw --headers-dir "$package_folder/include" --drop-private-types --exported-interfaces-only --no-corpus-path \
        --no-comp-dir-path --no-show-locs --no-elf-needed --no-parameter-names --no-write-default-sizes "$1"
}

interface_is_kept() {
    local released=$package_folder/released.abi present=$package_folder/present.abi
    if [[ ! -f $abi_folder/$2.xz ]] && compgen -G "$abi_folder/${2%.*}.*.xz" >/dev/null; then
        printf '%s is a number that was not released yet: no program is linked to it.\n' "$2"
        return
    fi
    xz -dc "$abi_folder/$2.xz" >"$released" && describe_interface "$1" >"$present" &&
        abidiff --no-added-syms --suppressions "$abi_folder/private.suppr" "$released" "$present" ||
        { printf 'Programs that are linked to %s would break: CONTRIBUTING.md says what then.\n' "$2"; return 1; }
}

write_interface() { describe_interface "$1" | xz -9e >"$abi_folder/$2.xz"; }

# What a release promises: its interface, and since which version each symbol is there. A symbol keeps its version.
renew_interface() {
    local symbols package version
    version=$(project_version)
    rm -f "$abi_folder"/*.xz
    each_library write_interface || return
    for symbols in debian/*.symbols; do
        package=$(basename "$symbols" .symbols)
        rm -rf "$package_folder/unpacked"
        dpkg-deb -x "$package_folder/$package"_*.deb "$package_folder/unpacked" || return
        dpkg-gensymbols -t -q -c0 "-p$package" "-v$version" "-P$package_folder/unpacked" "-O$symbols.new" >/dev/null || return
        # The two constructors of a class have one name to people.
        sed -E '/^#/d' "$symbols.new" | c++filt | sed -E 's/^ (kv::.*@KVPIM_[0-9]+) / (c++)"\1" /; s/ +$//' |
            awk '/^lib/ { delete seen } !seen[$0]++' >"$symbols"
        rm "$symbols.new"
    done
    git --no-pager diff --stat "$abi_folder" debian/*.symbols
}
