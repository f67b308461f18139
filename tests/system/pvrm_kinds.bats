#!/usr/bin/env bats
# Upgrades in which a path changes its kind: file, link or directory. All ways of it work, a failure
# and a recovery bring the old kind back, and what others have there is not lost.

load helpers

setup_file() { begin_tests; }

setup() {
    clean_repository
    rm -rf /srv/t /srv/other
    mkdir -p /srv/other
    echo theirs >/srv/other/x
}

teardown() {
    rm -rf /srv/t /srv/other
}

# A link of the package, for `package`: link_to TARGET NAME, below /srv/t
link_to() {
    printf 'info/link.txt=/srv/t|%s|%s' "$1" "$2"
}

# What is below /srv: kind, mode, path, and target or content.
state() {
    find /srv -mindepth 1 \( -type l -printf 'l %p -> %l\n' \) -o \( -type d -printf 'd %m %U %p\n' \) \
        -o \( -type f -printf 'f %m %U %p ' -exec cat {} \; \) | sort
}

# Each row: the content of the old version, and that of the new one, as arguments of `package`. Both
# have the file keep, so that there is a directory to be in.
old_of() { # CASE
    case $1 in
    link-to-file) link_to /srv/other/x p ;;
    dangling-link-to-file) link_to /nowhere p ;;
    directory-link-to-file) link_to /srv/other p ;;
    link-to-directory) link_to /srv/other p ;;
    directory-to-link | directory-to-file) printf 'data/srv/t/p/deep/x=old' ;;
    file-to-directory | file-to-link) printf 'data/srv/t/p=old' ;;
    esac
}

new_of() { # CASE
    case $1 in
    *-to-file) printf 'data/srv/t/p=new' ;;
    *-to-directory) printf 'data/srv/t/p/x=new' ;;
    *-to-link) link_to /srv/other p ;;
    esac
}

cases=(link-to-file dangling-link-to-file directory-link-to-file link-to-directory directory-to-link
    directory-to-file file-to-directory file-to-link)

install_old() { # CASE
    clean_repository
    rm -rf /srv/t
    pvrm install --quiet "$(package foo data/srv/t/keep=old "$(old_of "$1")")"
    if [[ -d /srv/t/p && ! -L /srv/t/p ]]; then
        chmod 2751 /srv/t/p
        chown 33 /srv/t/p
        setfattr -n user.kind -v kept /srv/t/p
    fi
    before=$(state)
}

new_version() { # CASE [ARGUMENT]...
    package foo version=2.0 data/srv/t/keep=new "$(new_of "$1")" "${@:2}"
}

@test "each change of kinds works in an upgrade" {
    for case in "${cases[@]}"; do
        echo "case $case"
        install_old "$case"
        run pvrm upgrade "$(new_version "$case")"
        assert_status 0
        assert_equal "$(cat /srv/t/keep)" new
        case $case in
        *-to-file)
            [[ -f /srv/t/p && ! -L /srv/t/p ]]
            assert_equal "$(cat /srv/t/p)" new
            ;;
        *-to-directory)
            [[ -d /srv/t/p && ! -L /srv/t/p ]]
            assert_equal "$(cat /srv/t/p/x)" new
            ;;
        *-to-link) assert_equal "$(readlink /srv/t/p)" /srv/other ;;
        esac
        # What the link led to is somebody else's.
        assert_equal "$(cat /srv/other/x)" theirs
        assert_equal "$(ls -A "$repository/saved" 2>/dev/null)" ''
        run pvrm verify foo
        assert_status 0
        run pvrm remove foo
        assert_status 0
        [[ ! -e /srv/t/p/x && ! -f /srv/t/p && ! -L /srv/t/p ]]
        assert_equal "$(cat /srv/other/x)" theirs
    done
}

@test "a failure brings the old kind back" {
    for case in "${cases[@]}"; do
        echo "case $case"
        install_old "$case"
        run pvrm upgrade "$(new_version "$case" 'init/99-add.sh=exit 1')"
        assert_status 1
        assert_equal "$(version_of foo)" 1.0
        assert_equal "$(state)" "$before"
        [[ ! -d /srv/t/p || -L /srv/t/p ]] ||
            assert_equal "$(getfattr --only-values -n user.kind /srv/t/p 2>/dev/null)" kept
    done
}

@test "a recovery brings the old kind back" {
    for case in "${cases[@]}"; do
        echo "case $case"
        install_old "$case"
        # shellcheck disable=SC2016
        run pvrm upgrade "$(new_version "$case" 'init/99-add.sh=kill -9 $(cat /var/lib/vrm/lock)')"
        assert_status 137
        run pvrm recover
        assert_status 0
        assert_equal "$(version_of foo)" 1.0
        assert_equal "$(state)" "$before"
    done
}

@test "a directory with files of others is not replaced, and they are named" {
    for case in directory-to-link directory-to-file; do
        install_old "$case"
        echo mine >/srv/t/p/deep/mine
        before=$(state)
        run pvrm upgrade "$(new_version "$case" 'init/00-add.sh=touch /tmp/ran')"
        assert_status 1
        assert_line 'pvrm: foo_any_2.0 replaces the directory /srv/t/p, but /srv/t/p/deep/mine in it is not a file of the old version: move it away and try again'
        assert_equal "$(state)" "$before"
        [[ ! -e /tmp/ran ]]
        assert_equal "$(version_of foo)" 1.0
    done
}

@test "a link that another package has too does not become a file" {
    install_old link-to-file
    pvrm install --quiet "$(package bar "$(link_to /srv/other/x p)")"
    before=$(state)
    run pvrm upgrade "$(new_version link-to-file)"
    assert_status 1
    assert_output_has bar
    assert_equal "$(state)" "$before"
}

@test "a link that was changed since is not the package's, and what it leads to stays" {
    install_old link-to-file
    ln -sfn /srv/other /srv/t/p
    run pvrm upgrade "$(new_version link-to-file)"
    assert_equal "$(cat /srv/other/x)" theirs
    assert_equal "$(find /srv/other | sort)" $'/srv/other\n/srv/other/x'
}

@test "a file over a link of the administrator: the link is back after a failure" {
    pvrm install --quiet "$(package foo data/srv/t/a=old)"
    mv /srv/t/a /srv/other/a
    ln -s /srv/other/a /srv/t/a
    before=$(state)
    run pvrm upgrade "$(package foo version=2.0 data/srv/t/a=new 'init/99-add.sh=exit 1')"
    assert_status 1
    assert_equal "$(state)" "$before"
    ln -s /srv/other/x /srv/t/mine
    before=$(state)
    run pvrm install --yes "$(package bar data/srv/t/mine=new 'init/99-add.sh=exit 1')"
    assert_status 1
    assert_equal "$(state)" "$before"
}

# Two ways to be cut short: by a failure of the last script, and by a kill in it.
cut_short() { # FAILURE|KILL ARGUMENT...
    case $1 in
    failure) run pvrm upgrade "$(package foo version=2.0 data/srv/t/keep=new "${@:2}" 'init/99-add.sh=exit 1')" ;;
    kill)
        # shellcheck disable=SC2016
        run pvrm upgrade "$(package foo version=2.0 data/srv/t/keep=new "${@:2}" 'init/99-add.sh=kill -9 $(cat /var/lib/vrm/lock)')"
        assert_status 137
        run pvrm recover
        assert_status 0
        ;;
    esac
}

@test "a directory for a link or a file, with configuration and links in it" {
    local old way
    for old in "$(link_to /srv/other p)" data/srv/t/p=old; do
        for way in failure kill; do
            echo "way $way of $old"
            clean_repository
            rm -rf /srv/t
            echo theirs >/srv/other/c
            echo theirs >/srv/other/l
            pvrm install --quiet "$(package foo data/srv/t/keep=old "$old")"
            before=$(state)
            cut_short "$way" data/srv/t/p/x=new conf/srv/t/p/c=new 'info/link.txt=/srv/t/p|x|l'
            assert_equal "$(state)" "$before"
            run pvrm upgrade "$(package foo version=2.0 data/srv/t/keep=new data/srv/t/p/x=new \
                conf/srv/t/p/c=new 'info/link.txt=/srv/t/p|x|l')"
            assert_status 0
            assert_equal "$(readlink /srv/t/p/l)" x
            assert_equal "$(cat /srv/t/p/c)" new
            assert_equal "$(cat /srv/other/c /srv/other/l /srv/other/x)" $'theirs\ntheirs\ntheirs'
        done
    done
}

@test "a directory that goes may hold links of the old version" {
    local way
    for way in failure kill; do
        clean_repository
        rm -rf /srv/t
        pvrm install --quiet "$(package foo data/srv/t/keep=old data/srv/t/p/lib.1=old \
            'info/link.txt=/srv/t/p|lib.1|lib')"
        before=$(state)
        cut_short "$way" "$(link_to /srv/other p)"
        assert_equal "$(state)" "$before"
        run pvrm upgrade "$(package foo version=2.0 data/srv/t/keep=new "$(link_to /srv/other p)")"
        assert_status 0
        assert_equal "$(readlink /srv/t/p)" /srv/other
        assert_equal "$(ls /srv/other)" x
    done
}

@test "a package that has a file below the place of its own link is upgraded as it was installed" {
    pvrm install --quiet "$(package foo data/srv/t/p/x=old "$(link_to /srv/other p)")"
    run pvrm upgrade "$(package foo version=2.0 data/srv/t/p/x=new "$(link_to /srv/other p)")"
    assert_status 0
    assert_equal "$(cat /srv/t/p/x)" new
}

@test "a directory of others in one that goes is named" {
    pvrm install --quiet "$(package foo data/srv/t/p/x=old)"
    mkdir /srv/t/p/mine
    run pvrm upgrade "$(package foo version=2.0 data/srv/t/p=new 'init/00-add.sh=touch /tmp/ran')"
    assert_status 1
    assert_output_has 'but /srv/t/p/mine in it is not a file of the old version'
    [[ -d /srv/t/p/mine && ! -e /tmp/ran ]]
}
