#!/usr/bin/env bats
# The installed default backend, as the privileged tool uses it.

bats_require_minimum_version 1.5.0
load helpers

packages=/var/lib/vrm/packages
index=/var/cache/vrm/vrc-dirs.index
backend=/usr/lib/vrm/vrc-dirs.so

# make_package NAME VERSION DIRECTORY
make_package() {
    mkdir -p "$1/data/usr/share/$1" "$3"
    echo "content of $1 $2" >"$1/data/usr/share/$1/text"
    printf '%s\n' "evrkName: $1" "evrkVersion: $2" 'evrkArchitecture: any' \
        "evrkDescription: The text of $1" >"$1/package.ldif"
    vrk-build pack "$1" --key key --cert cert.pem -o "$3" >/dev/null
}

setup_file() {
    cd "$BATS_FILE_TMPDIR" || return
    vrk-build keygen "/O=Test/CN=Builder" --key key --cert cert.pem
    pvrm -y trust cert.pem
}

setup() {
    cd "$BATS_FILE_TMPDIR" || return
    rm -rf "${packages:?}"/* /var/cache/vrm
    sed -i 's,^vrc_dirs=.*,vrc_dirs=/var/lib/vrm/packages,' /etc/vrm.conf
}

@test "it exports the interface and nothing else" {
    run nm -D --defined-only "$backend"
    assert_status 0
    assert_equal "$(awk '{ print $3 }' <<<"$output" | LC_ALL=C sort | xargs)" \
        "vrc_abi vrc_connect vrc_count vrc_findpkg vrc_readpkg vrc_refresh vrc_release vrc_set_report"
}

@test "every symbol that it needs is in a library that it names" {
    run ldd -r "$backend"
    assert_status 0
    # What a sanitizer asks for is in the program that loads it.
    output=$(sed '/undefined symbol: __\(asan\|ubsan\)_/d' <<<"$output")
    refute_output_has "undefined symbol"
    [[ $output != *"not found"* ]]
}

@test "an upgrade of all that meets a damaged index refreshes it and goes on" {
    local name
    make_package quince 1.0 "$packages"
    make_package walnut 1.0 "$packages"
    pvrm refresh
    pvrm -y install quince walnut
    make_package quince 2.0 "$packages"
    make_package walnut 2.0 "$packages"
    pvrm refresh
    # The last record of the table begins beyond the names.
    python3 - "$index" <<'END'
import struct, sys
with open(sys.argv[1], "r+b") as index:
    header = index.read(128)
    table_at, table_size = struct.unpack_from("=QQ", header, 48)
    index.seek(table_at + table_size - 32)
    index.write(b"\xff" * 4)
END
    run pvrm -y upgrade
    assert_status 0
    assert_output_has "the index is damaged; a refresh is needed"
    for name in quince walnut; do
        assert_equal "$(cat "/usr/share/$name/text")" "content of $name 2.0"
    done
    pvrm -y remove quince walnut
}

@test "a refresh keeps an index that later runs start with" {
    make_package apple 1.0 "$packages"
    pvrm refresh
    assert_equal "$(stat -c '%a %U' "$index")" "644 root"
    make_package pear 1.0 "$packages/below"
    run pvrm search apple
    assert_status 0
    run pvrm search pear
    assert_status 1
    pvrm refresh
    run pvrm search pear
    assert_status 0
    [[ ${lines[2]} == pear*1.0*"The text of pear"* ]]
}

@test "a search by pattern looks at names and descriptions" {
    make_package apple 1.0 "$packages"
    make_package pear 2.0 "$packages"
    pvrm refresh
    run pvrm search '*text of p*'
    assert_status 0
    [[ $output == *pear*2.0* && $output != *apple* ]]
}

@test "damaged files don't stop a refresh" {
    make_package apple 1.0 "$packages"
    : >"$packages/empty.vrk"
    head -c 40 "$packages"/apple*.vrk >"$packages/cut.vrk"
    head -c 5000 /dev/urandom >"$packages/noise.vrk"
    mkfifo "$packages/fifo.vrk"
    ln -s . "$packages/loop"
    # What an earlier refresh has found is still missing in the catalogue.
    for _ in first again; do
        run --separate-stderr timeout 120 pvrm refresh
        assert_status 0
        assert_line 'pvrm: the package catalogue is up to date'
        assert_equal "$(LC_ALL=C sort <<<"$stderr")" "\
pvrm: skipping $packages/cut.vrk: not a package file, or a damaged one
pvrm: skipping $packages/empty.vrk: not a package file, or a damaged one
pvrm: skipping $packages/fifo.vrk: not a regular file
pvrm: skipping $packages/noise.vrk: not a package file, or a damaged one"
    done
    run pvrm search apple
    assert_status 0
}

@test "without a directory that can be read a refresh fails, and says which" {
    make_package apple 1.0 "$packages"
    local unreadable='pvrm: cannot read directory /no/such/directory: No such file or directory'
    sed -i 's,^vrc_dirs=.*,vrc_dirs=/no/such/directory,' /etc/vrm.conf
    run --separate-stderr pvrm refresh
    assert_status 1
    assert_equal "$stderr" "$unreadable
pvrm: the package catalogue can't be refreshed"
    run --separate-stderr pvrm -y install apple
    assert_status 1
    assert_equal "$stderr" "$unreadable
pvrm: warning: the package catalogue can't be refreshed
pvrm: apple was not found in the package catalogue
pvrm: apple can't be installed"
    sed -i 's,^vrc_dirs=.*,vrc_dirs=/no/such/directory\, /var/lib/vrm/packages,' /etc/vrm.conf
    run --separate-stderr pvrm refresh
    assert_status 1
    assert_equal "$stderr" "$unreadable
pvrm: the package catalogue is up to date, except for what cannot be read"
    run --separate-stderr pvrm search apple
    assert_status 0
    assert_equal "$stderr" ''
    sed -i 's,^vrc_dirs=.*,vrc_dirs=,' /etc/vrm.conf
    run --separate-stderr pvrm refresh
    assert_status 1
    assert_equal "$stderr" "pvrm: vrc_dirs names no directory
pvrm: the package catalogue can't be refreshed"
}

@test "an index that can't be used is reported by the word that wants it" {
    make_package apple 1.0 "$packages"
    pvrm refresh
    chmod 666 "$index"
    run --separate-stderr pvrm search apple
    assert_status 0
    assert_equal "$stderr" "pvrm: warning: not using the index $index: it is not a file that only root or the caller can write to"
    run --separate-stderr pvrm search apple
    assert_status 0
    assert_equal "$stderr" ''
    chmod 700 /var/cache/vrm
    run --separate-stderr as_nobody pvrm search apple
    assert_status 0
    assert_equal "$stderr" "pvrm: warning: cannot open the index $index: Permission denied"
}

@test "a package file that is gone is named where it is wanted" {
    make_package apple 1.0 "$packages"
    pvrm refresh
    rm "$packages"/apple*.vrk
    run --separate-stderr pvrm -y install apple
    assert_status 1
    assert_equal "${stderr_lines[0]}" \
        "pvrm: failed to open $packages/apple_any_1.0.vrk: No such file or directory"
}

@test "an index that the machine can't keep is no failure" {
    make_package apple 1.0 "$packages"
    : >/var/cache/vrm
    run pvrm refresh
    assert_status 0
    assert_line 'pvrm: warning: cannot keep the index in /var/cache/vrm, working from memory: Not a directory'
    rm /var/cache/vrm
}

@test "a package is fetched from the directory and installed" {
    make_package apple 1.0 "$packages/below"
    pvrm refresh
    run pvrm -y install apple
    assert_status 0
    assert_equal "$(cat /usr/share/apple/text)" "content of apple 1.0"
}
