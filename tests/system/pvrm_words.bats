#!/usr/bin/env bats
# The words of the command line tool that only read, its usage, its rights, and the making of a
# repository.

bats_require_minimum_version 1.5.0
load helpers

setup_file() { begin_tests catalogue; }

setup() { clean_repository; }

# --- Usage ----------------------------------------------------------------------------------------

@test "every word explains itself" {
    run pvrm --help
    assert_status 0
    assert_output_has 'Exit status: 0 done, 1 something failed, 2 wrong usage, 3 not permitted,'
    assert_output_has '4 the repository is locked.'
    for word in allowed refresh install list search info files owner depends init trust distrust; do
        assert_output_has "  $word"
        run pvrm "$word" --help
        assert_status 0
        assert_output_has "$word"
        run pvrm --help
    done
}

@test "wrong usage is 2, on stderr" {
    for arguments in '' 'nonsense' 'install' 'search' 'info' 'files' 'owner' 'depends' 'trust' \
        'distrust' 'trust --list x' 'trust --list --replace' 'trust --replace' '--restricted=0 list' \
        'install --nonsense foo' 'list a b' 'owner /a /b'; do
        # shellcheck disable=SC2086
        run --separate-stderr pvrm $arguments
        assert_status 2
        assert_equal "$output" ''
        [[ -n $stderr ]]
    done
}

# --- Rights ---------------------------------------------------------------------------------------

@test "root is allowed, in silence" {
    run pvrm allowed
    assert_status 0
    assert_equal "$output" ''
}

@test "another user without sudo is not allowed" {
    run as_nobody env PATH=/usr/sbin pvrm allowed
    assert_status 3
    assert_equal "$output" ''
}

@test "another user without sudo can change nothing" {
    file=$(package foo out=/tmp/for-all)
    for arguments in "install $file" refresh init "trust $signer_cert"; do
        # shellcheck disable=SC2086
        run as_nobody env PATH=/usr/sbin pvrm $arguments
        assert_status 3
        assert_equal "$output" 'pvrm: you are not permitted to change the system: run this as root, or ask the administrator for membership in the group vrm'
    done
    refute_installed foo
}

# A sudo that notes what it is asked for, and permits nothing but pvrm: whether that at all, by the
# status in `permits`, and of its words those that the pattern in `words` fits. What it lists it tells
# by the status in `lists`.
make_sudo() {
    mkdir -p /tmp/fake
    : >/tmp/fake/asked
    echo 0 >/tmp/fake/lists
    echo '*' >/tmp/fake/words
    chmod 666 /tmp/fake/asked
    cat >/tmp/fake/sudo <<'END'
#!/bin/sh
echo "$*" >>/tmp/fake/asked
words=$(cat /tmp/fake/words)
case $* in
*" -l -- "*" allowed") exit "$(cat /tmp/fake/lists)" ;;
*" allowed") exit "$(cat /tmp/fake/permits)" ;;
esac
case ${*#* -- /usr/sbin/pvrm } in
$words) ;;
*)
    echo 'sudo: a password is required' >&2
    exit 1
    ;;
esac
case $* in
*" -l -- "*) exit "$(cat /tmp/fake/lists)" ;;
esac
echo "done as root"
exit 42
END
    chmod 755 /tmp/fake/sudo
}

@test "another user goes through sudo, whose status is the result" {
    make_sudo
    echo 0 >/tmp/fake/permits
    PATH=/tmp/fake:$PATH run as_nobody pvrm allowed
    assert_status 0
    PATH=/tmp/fake:$PATH run as_nobody pvrm --yes install --dir '/some where' foo
    assert_status 42
    assert_equal "$output" 'done as root'
    assert_equal "$(cat /tmp/fake/asked)" "\
-n -u root -- /usr/sbin/pvrm allowed
-n -u root -- /usr/sbin/pvrm allowed
-n -u root -l -- /usr/sbin/pvrm --yes install --dir /some where foo
-n -u root -- /usr/sbin/pvrm --yes install --dir /some where foo"
}

assert_done_as_root() { # ARGUMENT...
    PATH=/tmp/fake:$PATH run as_nobody pvrm "$@"
    assert_status 42
    assert_equal "$output" 'done as root'
}

@test "a word that sudo's rule leaves out is not permitted, and the others are" {
    make_sudo
    echo 0 >/tmp/fake/permits
    echo 'install *' >/tmp/fake/words
    PATH=/tmp/fake:$PATH run as_nobody pvrm trust "$signer_cert"
    assert_status 3
    assert_equal "$output" 'pvrm: you are not permitted to change the system: run this as root, or ask the administrator for membership in the group vrm'
    assert_done_as_root install foo
}

@test "a sudo that lists nothing is asked by running it" {
    make_sudo
    echo 0 >/tmp/fake/permits
    echo 1 >/tmp/fake/lists
    assert_done_as_root install foo
}

@test "what sudo refuses is not permitted" {
    make_sudo
    echo 1 >/tmp/fake/permits
    PATH=/tmp/fake:$PATH run as_nobody pvrm allowed
    assert_status 3
    PATH=/tmp/fake:$PATH run as_nobody pvrm install foo
    assert_status 3
    refute_output_has 'done as root'
}

@test "there is no setuid bit" {
    assert_equal "$(stat -c %a /usr/sbin/pvrm)" 755
}

@test "another user can ask, and leaves no log" {
    file=$(package foo out=/tmp/for-all)
    pvrm install "$file"
    rm /var/log/pvrm.log
    for arguments in list 'info foo' 'files foo' 'owner /usr/share/foo/about' "depends $file"; do
        # shellcheck disable=SC2086
        run as_nobody pvrm $arguments
        assert_status 0
    done
    [[ ! -e /var/log/pvrm.log ]]
}

# --- Asking ---------------------------------------------------------------------------------------

@test "list tells what is installed, or what of it matches" {
    run pvrm list
    assert_status 0
    assert_equal "$output" ''
    pvrm install "$(package foo)" "$(package bar variant=small version=2.0)"
    run pvrm list
    assert_equal "$output" "\
$(report_row 'Name (with variant)' Version Description)
$(report_row ------------------- ------- -----------)
$(report_row bar_small 2.0 'The package bar for tests')
$(report_row foo 1.0 'The package foo for tests')"
    run pvrm list 'f*'
    assert_equal "${#lines[@]} ${lines[2]}" "3 $(report_row foo 1.0 'The package foo for tests')"
    run pvrm list '*package bar*'
    assert_equal "${#lines[@]} ${lines[2]}" \
        "3 $(report_row bar_small 2.0 'The package bar for tests')"
    run pvrm list zzz
    assert_status 1
    assert_equal "$output" 'pvrm: no installed package matches zzz'
}

@test "info shows an installed package in full" {
    pvrm install "$(package foo needs=bar version=1.2 variant=x)" --dir "$(dirname "$(package bar)")"
    run pvrm info foo
    assert_status 0
    assert_line 'Name: foo'
    assert_line 'Version: 1.2'
    assert_line 'Variant: x'
    assert_line 'Architecture: any'
    assert_line 'Creator: Test'
    assert_line 'Description: The package foo for tests'
    assert_line 'Dependency: bar'
    assert_output_has 'Installed at: 2'
    assert_line 'Installed as: Explicit request'
    run pvrm info bar
    assert_line 'Installed as: Dependency of foo'
}

@test "info shows a package file with its signature" {
    file=$(package foo)
    run pvrm info --format form "$file"
    assert_status 0
    assert_line '  Name:         foo'
    assert_line '  Signature:    Successfully verified'
    assert_output_has '  File size:    1.'
    assert_line 'pvrm: foo is not installed'
    pvrm install "$file"
    run pvrm info --format form "$(package foo version=2.0)"
    assert_line 'pvrm: foo is installed in version 1.0'
    run pvrm --quiet info --format form "$(package foo version=2.0)"
    refute_output_has 'pvrm: '
    run pvrm info --format ldif "$file"
    assert_line "evrkFileHash: $(sha1sum "$file" | cut -c 1-40)"
    assert_line "evrkRsaSigSubj: /O=Test/CN=Builder"
}

@test "info warns of a package file that can't be trusted" {
    file=$(package foo)
    mv "$(signer_in_store)" /tmp/aside
    run --separate-stderr pvrm info "$file"
    mv /tmp/aside "$(signer_in_store)"
    assert_status 0
    assert_line 'Name: foo'
    assert_equal "${stderr_lines[0]%%: its signer*}" "pvrm: warning: $file can't be trusted"
    assert_equal "${stderr_lines[0]##*; }" 'pvrm trust puts one there'
    assert_equal "${stderr_lines[1]}" \
        "pvrm: the head of $file is not compared: its description is not signed"
}

@test "files lists the paths, one a line, of a package and of a file" {
    file=$(package foo data/usr/share/foo/b=1 data/usr/share/foo/a=2)
    run pvrm files "$file"
    assert_equal "$output" $'/usr/share/foo/a\n/usr/share/foo/b'
    pvrm install "$file"
    run pvrm files foo
    assert_equal "$(sort <<<"$output")" $'/usr/share/foo/a\n/usr/share/foo/b'
    run pvrm files nothing
    assert_status 1
    assert_equal "$output" 'pvrm: nothing is not installed'
}

@test "files of a file with a damaged content fail" {
    file=$(package foo)
    head -c -100 "$file" >/tmp/cut.vrk
    run pvrm files /tmp/cut.vrk
    assert_status 1
    assert_output_has "pvrm: the files of /tmp/cut.vrk can't be listed: its content"
}

@test "owner prints the name and nothing else" {
    pvrm install "$(package foo)"
    run --separate-stderr pvrm owner /usr/share/foo/about
    assert_status 0
    assert_equal "$output$stderr" foo
    cd /usr/share/foo
    run --separate-stderr pvrm owner ../foo/about
    assert_equal "$output" foo
    ln -s /usr/share/foo /tmp/link
    run --separate-stderr pvrm owner /tmp/link/about
    assert_equal "$output" foo
    rm /tmp/link
    run --separate-stderr pvrm owner /etc/passwd
    assert_status 1
    assert_equal "$output/$stderr" '/pvrm: no package owns /etc/passwd'
    run --separate-stderr pvrm owner /nowhere
    assert_status 1
    assert_equal "$output/$stderr" '/pvrm: /nowhere: No such file or directory'
}

@test "an output that can't be written is a failure" {
    pvrm install "$(package foo)"
    run bash -c 'pvrm list 2>&1 >/dev/full'
    assert_status 1
    assert_equal "$output" "pvrm: the output can't be written: No space left on device"
}

# --- What can be wrong around it ------------------------------------------------------------------

@test "a configuration that can't be used is told" {
    mv /etc/vrm.conf /tmp/vrm.conf
    for text in '' $'\e[31m nonsense' 'dist_name=x' 'arch_name=pdp11'; do
        printf '%s\n' "$text" >/etc/vrm.conf
        for word in list 'install foo' 'info foo' refresh; do
            # shellcheck disable=SC2086
            run pvrm $word
            assert_status 1
            assert_line "pvrm: the configuration /etc/vrm.conf can't be used; /usr/share/vrm/vrm.conf.sample shows a good one"
        done
    done
    rm /etc/vrm.conf
    run pvrm list
    mv /tmp/vrm.conf /etc/vrm.conf
    assert_status 1
}

@test "a repository that isn't there is told with what to do" {
    mv "$repository" /tmp/away
    for word in list 'owner /etc/passwd' 'install foo' "trust $signer_cert"; do
        # shellcheck disable=SC2086
        run pvrm $word
        assert_status 1
        assert_output_has "make what is missing with: pvrm init"
    done
    mv /tmp/away "$repository"
}

@test "an inventory that may not be read is told, and is no empty one" {
    pvrm install "$(package foo)"
    chmod 700 "$repository/installed"
    for word in list 'verify foo' 'why foo' orphans 'check --dry-run' 'install --dry-run foo' \
        'upgrade --dry-run' 'remove --dry-run foo' 'info foo' 'files foo' 'depends foo' \
        'search foo'; do
        # shellcheck disable=SC2086
        run as_nobody pvrm $word
        assert_status 1
        assert_equal "$output" "pvrm: the directory $repository/installed can't be read: Permission denied"
    done
    chmod 755 "$repository/installed"
    for place in fileindex fileindex/foo; do
        chmod 700 "$repository/$place"
        run as_nobody pvrm files foo
        chmod 755 "$repository/$place"
        assert_status 1
        assert_output_has "Permission denied"
    done
}

@test "a package file is shown, and a catalogue searched for a program, without an inventory" {
    file=$(package foo out=/tmp/for-all)
    offer known foo '' 1.0 1 'The package foo' '' "$file"
    chmod 700 "$repository/installed"
    run --separate-stderr as_nobody pvrm info --format form "$file"
    assert_status 0
    assert_line '  Name:         foo'
    assert_equal "$stderr" "pvrm: the head of $file matches its signed description
pvrm: the directory $repository/installed can't be read: Permission denied"
    for word in "files $file" "info --format ldif $file" 'search --format csv foo'; do
        # shellcheck disable=SC2086
        run --separate-stderr as_nobody pvrm $word
        assert_status 0
        [[ -n $output ]]
        assert_equal "$stderr" ''
    done
    chmod 755 "$repository/installed"
}

@test "a dry run of a change refuses what the change would refuse" {
    pvrm install "$(package foo)"
    for place in installed stagearea fileindex; do
        mv "$repository/$place" /tmp/missing
        for word in 'install foo' upgrade 'remove foo' cleanup; do
            # shellcheck disable=SC2086
            run pvrm $word
            assert_status 1
            local refusal=$output
            # shellcheck disable=SC2086
            run pvrm --dry-run $word
            assert_status 1
            assert_equal "$output" "$refusal"
        done
        mv /tmp/missing "$repository/$place"
    done
}

@test "an empty text is no name" {
    for word in info files depends verify why; do
        run pvrm "$word" ''
        assert_status 1
        assert_equal "$output" 'pvrm: an empty text is no name of a package'
    done
}

@test "a damaged entry of the inventory is passed over, and told" {
    pvrm install "$(package foo)" "$(package bar)"
    : >"$repository/installed/foo/desc.txt"
    run pvrm list
    assert_status 0
    assert_line "$(report_row bar 1.0 'The package bar for tests')"
    refute_output_has 'The package foo'
    : >"$repository/installed/bar/desc.txt"
    run pvrm list
    assert_status 1
}

# --- Making a repository --------------------------------------------------------------------------

@test "init makes what is missing, and a package with scripts can be installed then" {
    mv "$repository" /tmp/away
    run pvrm init --dry-run
    assert_status 0
    [[ ! -e $repository ]]
    run pvrm init
    assert_status 0
    assert_line "pvrm: the repository $repository is ready"
    for dir in installed stagearea fileindex certstore scriptdir; do
        assert_equal "$(stat -c %a "$repository/$dir")" 755
    done
    for command in ash sh cp mkdir sed grep awk; do
        [[ -x $repository/scriptdir/$command ]]
    done
    run pvrm init
    assert_status 0
    assert_equal "$output" "pvrm: the repository $repository is complete already"

    run pvrm trust --yes "$signer_cert"
    assert_status 0
    # shellcheck disable=SC2016
    run pvrm install "$(package foo 'init/00-add.sh=echo 1 2 | awk "{ print \$2 }" | sed s/2/two/')"
    assert_status 0
    assert_line two
    rm -rf "$repository"
    mv /tmp/away "$repository"
}

@test "init leaves what is there" {
    echo mine >"$repository/scriptdir/extra"
    rm -f "$repository/scriptdir/sed"
    run pvrm init
    assert_status 0
    [[ -x $repository/scriptdir/sed ]]
    assert_equal "$(cat "$repository/scriptdir/extra")" mine
    rm "$repository/scriptdir/extra"
}
