#!/usr/bin/env bats
# Showing and changing the configuration with the command line tool.

load helpers

conf=/etc/vrm.conf

setup() {
    rm -rf "$conf"* /etc/more.conf /var/log/pvrm.log
    mkdir -p /srv/packages
    cat >"$conf" <<'END'
# The machine.
arch_name = x86_64
dist_name = 'My system'  # a remark

vrc_dirs = /srv/packages
END
}

# After a refusal: nothing was written.
assert_untouched() {
    assert_equal "$(sha1sum <"$conf")" "$untouched"
    assert_equal "$(ls /etc/vrm.conf*)" "$conf"
}

# --- Showing --------------------------------------------------------------------------------------

@test "what counts is shown with the place that it comes from" {
    run pvrm config
    assert_status 0
    assert_equal "$output" 'arch_name       x86_64          /etc/vrm.conf:2
dist_name       My system       /etc/vrm.conf:3
dist_vers       -               not set
script_wait     60              default
vrc_backend     vrc-dirs.so     default
vrc_dirs        /srv/packages   /etc/vrm.conf:5
vrc_dirs_cache  /var/cache/vrm  default'
}

@test "included files, later lines and other keys are shown" {
    printf 'dist_vers = 7\nOTHER = x\n' >/etc/more.conf
    printf 'include /etc/more.conf\ndist_vers = 8\nArch_Name = mips\n' >>"$conf"
    run pvrm config
    assert_status 0
    assert_line 'arch_name       mips            /etc/vrm.conf:8'
    assert_line 'dist_vers       8               /etc/vrm.conf:7'
    assert_equal "${lines[-1]}" 'OTHER           x               /etc/more.conf:2'
}

@test "keys of a backend that is not in use are left out, unless they are set" {
    sed -i '/vrc_dirs/d' "$conf"
    echo 'vrc_backend = other.so' >>"$conf"
    run pvrm config
    refute_output_has vrc_dirs
    echo 'vrc_dirs = /x' >>"$conf"
    run pvrm config
    assert_line 'vrc_dirs     /x         /etc/vrm.conf:6'
    refute_output_has vrc_dirs_cache
}

@test "one key is printed alone" {
    assert_equal "$(pvrm config dist_name)" 'My system'
    assert_equal "$(pvrm config DIST_NAME)" 'My system'
    assert_equal "$(pvrm config vrc_backend)" vrc-dirs.so
}

@test "a key that is not set is a failure" {
    run pvrm config dist_vers
    assert_status 1
    assert_equal "$output" 'pvrm: dist_vers is not set'
}

@test "an unknown key is refused, with the known ones" {
    run pvrm config vrc_dir
    assert_status 1
    assert_output_has 'pvrm: there is no key vrc_dir; the keys are arch_name, dist_name, dist_vers, script_wait, vrc_backend, vrc_dirs, vrc_dirs_cache;'
}

@test "anybody may see it" {
    run as_nobody pvrm config arch_name
    assert_status 0
    assert_equal "$output" x86_64
}

@test "a file that may not be read is told with the reason" {
    chmod 600 "$conf"
    run as_nobody pvrm config
    assert_status 1
    assert_equal "$output" "pvrm: $conf can't be read: Permission denied"
}

@test "a missing file is told" {
    rm "$conf"
    run pvrm config
    assert_status 1
    assert_equal "$output" "pvrm: $conf can't be read: No such file or directory; /usr/share/vrm/vrm.conf.sample shows a good one"
    run pvrm config arch_name mips
    assert_status 1
    [[ ! -e $conf ]]
}

@test "values can't steer the terminal" {
    printf 'dist_name = \e[31mred\n' >>"$conf"
    assert_equal "$(pvrm config dist_name)" '\x1B[31mred'
    run pvrm config
    assert_output_has '\x1B[31mred'
}

# --- Changing -------------------------------------------------------------------------------------

@test "a line is changed, and the old file stays" {
    cp "$conf" "$BATS_TEST_TMPDIR/before"
    run pvrm config dist_name 'Your system'
    assert_status 0
    assert_equal "$output" 'pvrm: set dist_name to "Your system"; the old file is /etc/vrm.conf.prev'
    assert_equal "$(cat "$conf")" '# The machine.
arch_name = x86_64
dist_name=Your system

vrc_dirs = /srv/packages'
    cmp "$conf.prev" "$BATS_TEST_TMPDIR/before"
    [[ ! -e $conf.next ]]
    assert_equal "$(pvrm config dist_name)" 'Your system'
    grep -q 'set dist_name to "Your system"' /var/log/pvrm.log
}

@test "a line that the file lacks is added" {
    cp "$conf" "$BATS_TEST_TMPDIR/before"
    run pvrm config vrc_dirs_cache /var/cache/other
    assert_status 0
    assert_equal "$(cat "$conf")" "$(cat "$BATS_TEST_TMPDIR/before")
vrc_dirs_cache=/var/cache/other"
    cmp "$conf.prev" "$BATS_TEST_TMPDIR/before"
    # A default that is set is not the default any more.
    run pvrm config vrc_backend vrc-dirs.so
    assert_status 0
    run pvrm config
    assert_line 'vrc_backend     vrc-dirs.so       /etc/vrm.conf:7'
}

@test "a broken configuration can be mended" {
    sed -i 's/x86_64/vax/' "$conf"
    run pvrm list
    assert_status 1
    run pvrm config arch_name i686
    assert_status 0
    run pvrm list
    assert_status 0
    : >"$conf"
    pvrm config arch_name mips
    assert_equal "$(cat "$conf")" arch_name=mips
}

@test "owner and permissions stay" {
    for change in 'dist_name x' 'dist_vers 1'; do
        chown 1234:2345 "$conf"
        chmod 640 "$conf"
        # shellcheck disable=SC2086
        pvrm config $change
        assert_equal "$(stat -c '%u:%g %a' "$conf")" '1234:2345 640'
    done
}

@test "a link stays a link, and leads to the new file" {
    mkdir -p /srv/conf
    mv "$conf" /srv/conf/real
    ln -s /srv/conf/real "$conf"
    run pvrm config dist_name x
    assert_status 0
    assert_equal "$output" 'pvrm: set dist_name to "x"; the old file is /srv/conf/real.prev'
    pvrm config dist_vers 1
    [[ -L $conf ]]
    grep -q '^dist_name=x$' /srv/conf/real
    assert_equal "$(pvrm config dist_vers)" 1
}

@test "values that the format cuts come back as they are" {
    local value
    # shellcheck disable=SC1003
    for value in ' in blanks ' '"quoted"' "it's \"x\"" '# mark' 'a#b' 'a = b' 'end\' ' end\' ''; do
        pvrm --quiet config dist_name "$value"
        assert_equal "$(pvrm config dist_name)" "$value"
        pvrm --quiet config dist_vers "$value"
        assert_equal "$(pvrm config dist_vers)" "$value"
    done
}

@test "the value that it has already is not written" {
    untouched=$(sha1sum <"$conf")
    run pvrm config dist_name 'My system'
    assert_status 0
    assert_equal "$output" 'pvrm: dist_name is "My system" already'
    assert_untouched
}

@test "--dry-run only tells, and needs no root" {
    untouched=$(sha1sum <"$conf")
    run as_nobody pvrm config --dry-run arch_name mips
    assert_status 0
    assert_equal "$output" 'pvrm: would set arch_name to "mips" in /etc/vrm.conf'
    assert_untouched
    run as_nobody pvrm config --dry-run arch_name vax
    assert_status 1
}

# --- Refusals -------------------------------------------------------------------------------------

@test "without a right nothing is changed" {
    untouched=$(sha1sum <"$conf")
    run as_nobody pvrm config dist_name x
    assert_status 3
    assert_untouched
}

@test "values that could not be used are refused" {
    untouched=$(sha1sum <"$conf")
    touch /srv/file
    echo text >/usr/lib/vrm/broken.so
    while IFS='|' read -r key value why; do
        run pvrm config "$key" "$value"
        assert_status 1
        assert_line "pvrm: $key can't be \"$value\": $why"
        assert_untouched
    done <<'END'
arch_name|vax|there is no such architecture
arch_name||there is no such architecture
arch_name|any|a machine is i686, x86_64 or mips
script_wait||it is not a number of seconds from 0 to 86400
script_wait|soon|it is not a number of seconds from 0 to 86400
script_wait|-1|it is not a number of seconds from 0 to 86400
script_wait|5s|it is not a number of seconds from 0 to 86400
script_wait|86401|it is not a number of seconds from 0 to 86400
script_wait|99999999999999999999|it is not a number of seconds from 0 to 86400
vrc_backend|none.so|there is no such backend in /usr/lib/vrm
vrc_backend||there is no such backend in /usr/lib/vrm
vrc_backend|broken.so|/usr/lib/vrm/broken.so can't be loaded as a backend
vrc_dirs|/srv/packages, /srv/none|/srv/none: No such file or directory
vrc_dirs|/srv/file|/srv/file is no directory
vrc_dirs|packages|packages is no absolute path
vrc_dirs|,|it names no directory
vrc_dirs_cache|/srv/file|/srv/file is no directory
vrc_dirs_cache|cache|cache is no absolute path
END
    rm /usr/lib/vrm/broken.so
}

@test "nothing is changed when the old file can't be kept" {
    untouched=$(sha1sum <"$conf")
    mkdir "$conf.prev"
    for key in dist_name vrc_dirs_cache; do
        run pvrm config "$key" /srv
        rmdir "$conf.prev"
        assert_status 1
        assert_equal "$output" "pvrm: $conf.prev is in the way of the old file, and is no regular file
pvrm: $conf stays as it was"
        assert_untouched
        mkdir "$conf.prev"
    done
    rmdir "$conf.prev"
}

@test "an unknown key is not added" {
    untouched=$(sha1sum <"$conf")
    run pvrm config vrc_list /srv
    assert_status 1
    assert_output_has 'pvrm: there is no key vrc_list;'
    assert_untouched
    # One that stands there is known, whoever reads it.
    echo 'vrc_list = /srv' >>"$conf"
    run pvrm config vrc_list /srv/list
    assert_status 0
    grep -qx 'vrc_list=/srv/list' "$conf"
}

@test "a line end forges no line" {
    untouched=$(sha1sum <"$conf")
    run pvrm config dist_name $'x\narch_name = mips'
    assert_status 1
    assert_equal "$output" "pvrm: dist_name can't be given this value: a line of the configuration can't hold it"
    assert_untouched
}

@test "a key of an included file is left to that file" {
    echo 'dist_name = included' >/etc/more.conf
    echo 'include /etc/more.conf' >>"$conf"
    untouched=$(sha1sum <"$conf")
    run pvrm config dist_name x
    assert_status 1
    assert_equal "$output" 'pvrm: dist_name is set in line 1 of /etc/more.conf, which /etc/vrm.conf includes: change it there'
    assert_untouched
    # A later line of the file itself is what counts.
    echo 'dist_name = last' >>"$conf"
    run pvrm config dist_name x
    assert_status 0
    assert_equal "$(pvrm config dist_name)" x
    assert_equal "$(cat /etc/more.conf)" 'dist_name = included'
}

@test "while another process changes it nothing is done" {
    untouched=$(sha1sum <"$conf")
    run flock /etc pvrm config dist_name x
    assert_status 4
    assert_equal "$output" 'pvrm: another process is changing /etc/vrm.conf; try again when it has ended'
    assert_untouched
}

@test "a file that can't be written is told, and stays" {
    for change in 'dist_name x' 'dist_vers 1'; do
        untouched=$(sha1sum <"$conf")
        mkdir "$conf.next"
        # shellcheck disable=SC2086
        run pvrm config $change
        rmdir "$conf.next"
        assert_status 1
        assert_line 'pvrm: /etc/vrm.conf stays as it was'
        assert_untouched
    done
}
