# shellcheck shell=bash
# Builds the Python wheel with the shared library in it, and tries it.

wheel_folder=build-wheel # of the preset of this name
readonly debian_python=/usr/bin/python3

# By Debian's tools, without the network.
build_wheel() {
    local sources=$wheel_folder/sources tag brought
    build wheel kvpim_c || return
    rm -rf "$sources" "$package_folder"/*.whl
    mkdir -p "$sources" "$package_folder"
    cp -r python/kvpim python/pyproject.toml python/setup.py LICENSE "$sources"
    find "$sources" -name __pycache__ -prune -exec rm -r {} +
    strip --strip-unneeded -o "$sources/kvpim/libkvpim_c.so.1" "$wheel_folder/Binding/libkvpim_c.so.1" || return
    # What few systems have comes with it; OpenSSL and zlib are the system's to keep safe. RE2 wants its licence told.
    mapfile -t brought < <(ldd "$wheel_folder/Binding/libkvpim_c.so.1" | sed -nE 's/^\s+lib(boost_|re2).* => (\S+) .*/\2/p')
    cp -L "${brought[@]}" "$sources/kvpim" && cp /usr/share/doc/libre2-9/copyright "$sources/LICENSE.re2" || return
    tag=$("$debian_python" tools/wheel_tag.py "$sources"/kvpim/*.so.*) || return
    say "Making the wheel ($tag)"
    SOURCE_DATE_EPOCH=$(dpkg-parsechangelog -S Timestamp) KVPIM_WHEEL_TAG=$tag run_job "$debian_python" -m pip \
        --disable-pip-version-check wheel --quiet --no-deps --no-index --no-build-isolation --wheel-dir "$package_folder" "$sources" ||
        return
    du --bytes "$package_folder"/*.whl
}

# Installed where neither a compiler nor the sources are to be found: logs in, and has a message come back.
wheel_works() {
    local environment=$wheel_folder/environment said
    rm -rf "$environment"
    "$debian_python" -m venv "$environment" &&
        PATH=$PWD/$environment/bin run_job pip --disable-pip-version-check install --quiet --no-index "$package_folder"/*.whl ||
        return
    ! ldd "$environment"/lib/python3*/site-packages/kvpim/libkvpim_c.so.1 | grep -E 'boost|re2|not found' | grep -v "$environment" || return
    start_service "$package_folder/service.log"
    said=$(readme_block python | sed "s#http://127.0.0.1:8600#$service_url#" |
        env -i PATH="$PWD/$environment/bin" HOME="$PWD/$environment" "$environment/bin/python" -I - 2>&1)
    stop_server
    printf '%s\n' "$said"
    [[ $said == *"alice says: Hello, world"* ]]
}
