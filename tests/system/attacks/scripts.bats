#!/usr/bin/env bats
# What a forged package could have run, and scripts that outlive the tool that started them.

# Commands of an attacker are never to be expanded.
# shellcheck disable=SC2016

load ../helpers
load hostile

setup_file() {
    set_up_attacks
}

setup() {
    rm -rf "${repository:?}"/stagearea/*
    rm -f /tmp/started /tmp/go /tmp/out
}

# A hook that hands all that can be handed on, between single quotes and between none.
add_hook() {
    cat >/etc/vrm/hooks.d/all.vrh <<'HOOK'
evrhType: 99-cfg
evrhName: all
evrhCond: attr:evrkName=*
evrhExec: /bin/echo '${evrkName}' '${evrkCreator}' '${evrkDescription}' ${evrkDescription} >>/srv/victim/hook
HOOK
}

# The package with this text in its head is refused, and neither its scripts nor hooks ran.
assert_nothing_ran() { # TEXT
    add_hook
    begin foo 1.0 data/usr/share/foo/about=foo \
        init/00-add.sh='echo "$VRK_DESCRIPTION" >/srv/victim/run' \
        init/99-cfg.sh='eval "$VRK_CREATOR"'
    sed -i "s|for tests|for tests $1|; s|^evrkCreator: .*|evrkCreator: $1|" "$work/head"
    seal
    attack pvrm -y install "$vrk"
    rm -f /etc/vrm/hooks.d/all.vrh
    assert_equal "$(ls /srv/victim)" file
    assert_repelled 'cannot install foo_any_1.0.vrk' 'its head' 'its signed description'
    refute_installed foo
}

@test "a command in the head of a package reaches no shell" {
    assert_nothing_ran '$(touch /srv/victim/run)'
}

@test "an old form of a command" {
    assert_nothing_ran '`touch /srv/victim/run`'
}

@test "a command behind a quote" {
    assert_nothing_ran "'; touch /srv/victim/run; '"
}

@test "a command behind a semicolon" {
    assert_nothing_ran '; touch /srv/victim/run;'
}

@test "a command in the head of an upgrade" {
    add_hook
    begin bar 1.0
    rm -f /etc/vrm/hooks.d/all.vrh
    seal
    pvrm install "$vrk"
    add_hook
    begin bar 2.0 data/usr/share/bar/about=bar init/00-add.sh='touch /srv/victim/run'
    sed -i 's|for tests|$(touch /srv/victim/run)|' "$work/head"
    seal
    attack pvrm -y upgrade "$vrk"
    rm -f /etc/vrm/hooks.d/all.vrh
    assert_equal "$(ls /srv/victim)" file
    assert_repelled 'cannot install bar_any_2.0.vrk' 'its head' 'its signed description'
    assert_equal "$(version_of bar)" 1.0
}

@test "a package whose signature does not hold runs nothing" {
    begin foo 1.0 data/usr/share/foo/about=foo init/00-add.sh='touch /srv/victim/run'
    seal
    begin bar 1.0
    archive | gzip -n >"$work/payload"
    signature >"$work/signature"
    stolen=$work/signature
    begin foo 1.0 data/usr/share/foo/about=foo init/00-add.sh='touch /srv/victim/run'
    cp "$stolen" "$work/signature"
    seal
    attack pvrm -y install "$vrk"
    assert_repelled "$vrk can't be installed" 'signature does not fit'
}

# --- Scripts that go on ---------------------------------------------------------------------------

# Kills the tool while the first script of foo runs, and leaves that one running.
leave_script_running() {
    begin foo 1.0 data/usr/share/foo/about=foo "init/00-add.sh=$waiting_script"
    seal
    start_pvrm -y install "$vrk"
    kill -KILL "$tool"
    wait "$tool" || true
}

end_script() {
    touch /tmp/go
    rm -f "$repository/lock"
}

@test "no change begins beside a script that a killed one left running" {
    leave_script_running
    begin later 1.0
    seal
    cp /etc/vrm.conf "$BATS_TEST_TMPDIR/vrm.conf"
    echo script_wait=1 >>/etc/vrm.conf
    attack pvrm -y install "$vrk"
    cp "$BATS_TEST_TMPDIR/vrm.conf" /etc/vrm.conf
    end_script
    # The killed one's lock is gone with the attempt.
    changed=$(grep -v "$repository/lock" <<<"$changed" || true)
    assert_repelled '00-add.sh of foo' 'process'
    refute_installed later
}

@test "the next change waits for such a script and then is carried out" {
    leave_script_running
    begin later 1.0
    seal
    pvrm -y install "$vrk" >/tmp/out 2>&1 3>&- &
    tool=$!
    wait_until grep -q '00-add.sh of foo' /tmp/out
    refute_installed later
    finish
    assert_status 0
    is_installed later
    pvrm -y remove later
}
