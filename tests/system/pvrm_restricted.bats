#!/usr/bin/env bats
# The restricted mode, and the rules of the sudoers sample with a real sudo.

bats_require_minimum_version 1.5.0
load helpers

matrix=$BATS_TEST_DIRNAME/restricted_matrix

setup_file() {
    begin_tests catalogue
    groupadd --system vrm
    useradd --create-home --groups vrm member
    useradd --create-home stranger
    rm -f /etc/sudoers.d/*
}

setup() {
    cd "$BATS_FILE_TMPDIR"
    clean_repository
    rm -f /home/member/* /etc/sudoers.d/vrm
}

# --- The matrix -----------------------------------------------------------------------------------

# The lines of the matrix without its comments.
matrix_rows() {
    sed -E 's/#.*//; /^ *$/d' "$matrix"
}

# What the help lists, as the first two columns of the matrix.
words_and_options() {
    local word
    options_of pvrm | sed 's/^/- /'
    for word in $(words_of pvrm); do
        echo "$word -"
        # The common ones are in the word's last lines as well.
        options_of pvrm "$word" | grep -vxFe "$(options_of pvrm)" | sed "s/^/$word /"
    done
}

words_of() { # PROGRAM
    "$1" --help | awk '/^Subcommands:/ { on = 1; next } /^[^ ]/ || /^$/ { on = 0 } on { print $1 }'
}

options_of() { # PROGRAM [WORD]
    "$@" --help | grep -oE -- '(^|[ ,])--[a-z-]+' | tr -d ' ,' | grep -vx -- --help | sort -u
}

@test "the matrix has every word and every option of the help, and no other" {
    words_and_options >listed
    grep -qx 'install --version' listed
    grep -qx -- '- --restricted' listed
    assert_equal "$(matrix_rows | awk '{ print $1, $2 }' | sort)" "$(sort listed)"
}

@test "each word and option is permitted or refused as the matrix has it" {
    local word option verdict arguments tried=0
    put_on_offer offered
    while read -r word option verdict arguments; do
        [[ $word != - ]] || { arguments=$option word=refresh; }
        # shellcheck disable=SC2086
        run pvrm --restricted "$word" $arguments </dev/null
        case $verdict in
        permitted)
            [[ $status == [01] ]] || assert_status 0
            refute_output_has 'is not permitted with --restricted'
            ;;
        refused)
            assert_status 3
            assert_equal "${#lines[@]}" 1
            assert_output_has 'is not permitted with --restricted'
            ;;
        *) false ;;
        esac
        tried=$((tried + 1))
    done < <(matrix_rows)
    assert_equal "$tried" "$(matrix_rows | wc -l)"
}

@test "the rule of the sample permits the changing words of the matrix, and no other word" {
    local word option verdict arguments
    use_rule restricted
    while read -r word option verdict arguments; do
        [[ $option == - ]] || continue
        case $word in
        allowed | refresh | install | upgrade | remove | cleanup | recover)
            assert_equal "$word $verdict" "$word permitted"
            # shellcheck disable=SC2086
            as_user member sudo -n -l -- /usr/sbin/pvrm --restricted "$word" $arguments
            ;;
        *)
            # shellcheck disable=SC2086
            run as_user member sudo -n -l -- /usr/sbin/pvrm --restricted "$word" $arguments
            assert_status 1
            ;;
        esac
    done < <(matrix_rows)
}

@test "package files are refused wherever a name is taken" {
    local file word
    file=$(package foo out=/tmp/for-all)
    cp "$file" foo.vrk
    for word in install upgrade info files depends; do
        for argument in "$file" ./foo.vrk foo.vrk /nowhere/foo; do
            run pvrm --restricted "$word" "$argument"
            assert_status 3
            assert_equal "$output" "pvrm: the package file $argument is not permitted with --restricted; name a package of the catalogue"
        done
    done
    refute_installed foo
}

@test "nothing on the command line takes the option back" {
    run pvrm --restricted init --restricted
    assert_status 3
    for arguments in '--restricted --restricted=false init' '--restricted init --restricted=0' \
        '--no-restricted init' '--restricted init install foo'; do
        # shellcheck disable=SC2086
        run pvrm $arguments
        assert_status 2
    done
    run pvrm --restricted install --version 1.0 -- foo
    assert_status 3
    # After the end of the options, and after a word, there are names.
    run pvrm --restricted install -- --dir trust
    assert_status 1
    assert_output_has '--dir was not found in the package catalogue'
    assert_output_has 'trust was not found in the package catalogue'
}

# --- The rules of the sample ----------------------------------------------------------------------

# Makes a rule of the sample the one that counts: full, restricted, both or none.
use_rule() {
    local sample=/usr/share/vrm/vrm.sudoers.sample
    {
        [[ $1 != full && $1 != both ]] || sed 's/^#%.*//' "$sample"
        [[ $1 != restricted && $1 != both ]] ||
            awk '/^#%vrm/ { on = 1 } on { sub(/^#/, ""); print }' "$sample"
    } >/etc/sudoers.d/vrm
    chmod 440 /etc/sudoers.d/vrm
    visudo -cf /etc/sudoers.d/vrm
}

as_user() { # USER COMMAND [ARGUMENT]...
    setpriv --reuid "$1" --regid "$1" --init-groups env HOME="/home/$1" PATH=/usr/bin:/usr/sbin "${@:2}"
}

not_permitted='pvrm: you are not permitted to change the system: run this as root, or ask the administrator for membership in the group vrm'

@test "visudo accepts the sample and both of its rules" {
    cp /usr/share/vrm/vrm.sudoers.sample sample
    chmod 440 sample
    visudo -cf sample
    use_rule full
    use_rule restricted
    grep -q -- '--restricted install' /etc/sudoers.d/vrm
    use_rule both
}

@test "a member under the restricted rule installs, upgrades and removes by name" {
    use_rule restricted
    as_user member pvrm allowed
    as_user member pvrm --restricted allowed
    as_user member pvrm --quiet refresh
    put_on_offer foo needs=bar
    put_on_offer bar
    run as_user member pvrm --yes install foo
    assert_status 0
    is_installed foo
    assert_equal "$(install_type bar)" D
    put_on_offer foo version=2.0
    run as_user member pvrm upgrade
    assert_status 0
    assert_equal "$(version_of foo)" 2.0
    put_on_offer foo version=3.0
    run as_user member pvrm -y upgrade -q foo
    assert_status 0
    assert_equal "$(version_of foo)" 3.0
    run as_user member pvrm cleanup
    assert_status 0
    run as_user member pvrm remove --keep-deps foo
    assert_status 0
    refute_installed foo
    is_installed bar
}

@test "a member under the restricted rule can do nothing else by the tool" {
    local file
    use_rule restricted
    file=$(package foo out=/tmp/for-all)
    put_on_offer bar
    cp "$signer_cert" /tmp/for-all/signer.pem
    for arguments in "trust --yes /tmp/for-all/signer.pem" 'distrust --yes /O=Test/CN=Builder' init \
        'config dist_name mine' check; do
        # shellcheck disable=SC2086
        run as_user member pvrm $arguments
        assert_status 3
        assert_equal "$output" "$not_permitted"
    done
    for arguments in "install $file" "upgrade $file" "install --dir /tmp/for-all bar" \
        'install --version 1.0 bar'; do
        # shellcheck disable=SC2086
        run as_user member pvrm $arguments
        assert_status 3
        assert_output_has 'is not permitted with --restricted'
    done
    assert_equal "$(ls "$repository/installed")" ''
    [[ -e $(signer_in_store) ]]
    grep -qx 'dist_name=sandbox' /etc/vrm.conf
}

@test "an older package with a trusted signature is no way back for a member" {
    local old
    use_rule restricted
    old=$(package foo version=1.0 out=/tmp/for-all)
    put_on_offer foo version=1.0
    put_on_offer foo version=2.0
    put_on_offer foo version=1.0 variant=old
    as_user member pvrm --yes install foo
    for arguments in "upgrade $old" 'install --version 1.0 foo' 'upgrade --version 1.0 foo' \
        'install --variant old foo'; do
        # shellcheck disable=SC2086
        run as_user member pvrm $arguments
        [[ $status == [23] ]]
        assert_equal "$(version_of foo)" 2.0
    done
}

@test "sudo runs nothing but the forms of the restricted rule" {
    use_rule restricted
    put_on_offer foo
    for arguments in 'install foo' 'trust x' 'install --restricted foo' '-y --restricted install foo' \
        '--restricted trust x' '--restricted --yes install foo' '--restricted' '--restricted config'; do
        # shellcheck disable=SC2086
        run as_user member sudo -n /usr/sbin/pvrm $arguments
        assert_status 1
        assert_output_has 'sudo: '
    done
    # What fits the rule, and is no word of the tool.
    run as_user member sudo -n /usr/sbin/pvrm '--restricted install' foo
    assert_status 2
    run as_user member sudo -n /usr/sbin/pvrm --restricted 'install foo'
    assert_status 2
    run as_user member sudo -n /usr/sbin/pvrm --restricted install foo --restricted=false
    assert_status 2
    run as_user member sudo -n VRM_X=1 /usr/sbin/pvrm --restricted install foo
    assert_status 1
    refute_installed foo
}

@test "a user who is not a member may do nothing" {
    use_rule restricted
    for arguments in allowed '--restricted allowed'; do
        # shellcheck disable=SC2086
        run as_user stranger pvrm $arguments
        assert_status 3
        assert_equal "$output" ''
    done
    for arguments in 'refresh' 'install foo' '--restricted install foo'; do
        # shellcheck disable=SC2086
        run as_user stranger pvrm $arguments
        assert_status 3
        assert_equal "$output" "$not_permitted"
    done
}

@test "the full form is used when a rule permits it, unless the restricted one is asked for" {
    local file rule
    file=$(package foo out=/tmp/for-all)
    for rule in full both; do
        clean_repository
        use_rule "$rule"
        as_user member pvrm allowed
        run as_user member pvrm --restricted install "$file"
        assert_status 3
        run as_user member pvrm install "$file"
        assert_status 0
        is_installed foo
    done
}

# --- The caller's surroundings --------------------------------------------------------------------

@test "a file of the caller's directory does not become the configuration" {
    cp /etc/vrm.conf conf.aside
    printf 'include more.conf\n' >>/etc/vrm.conf
    printf 'dist_name=evil\nvrc_backend=evil.so\n' >/home/member/more.conf
    use_rule restricted
    put_on_offer foo
    # That the file counts without the option shows that this test looks at the right thing.
    run env --chdir /home/member pvrm config vrc_backend
    assert_equal "$output" evil.so
    run as_user member env --chdir /home/member pvrm install foo
    cp conf.aside /etc/vrm.conf
    assert_status 0
    is_installed foo
}

@test "the caller's environment does not matter" {
    echo 'Defaults env_keep += "VRM_SHOWLOG_DEBUG_LOGFILE PROBE"' >/etc/sudoers.d/keep
    chmod 440 /etc/sudoers.d/keep
    use_rule restricted
    # shellcheck disable=SC2016
    put_on_offer foo 'init/00-add.sh=echo "probe: <$PROBE>"'
    PROBE=seen run as_user member pvrm install foo
    rm /etc/sudoers.d/keep
    assert_status 0
    assert_line 'probe: <>'
    echo '2020-01-01 00:00:00: secret' >other.log
    VRM_SHOWLOG_DEBUG_LOGFILE=$PWD/other.log run pvrm log --format raw
    assert_output_has secret
    VRM_SHOWLOG_DEBUG_LOGFILE=$PWD/other.log run pvrm --restricted log --format raw
    assert_status 0
    refute_output_has secret
}

@test "a limit of the caller does not end a change half way" {
    use_rule restricted
    put_on_offer foo "data/usr/share/foo/large=$(head -c 30000 /dev/zero | tr '\0' x)"
    # One that can be raised, and one that only some kernels' root can raise.
    run as_user member bash -c 'ulimit -S -f 8; pvrm install foo'
    assert_status 0
    is_installed foo
    pvrm --quiet remove foo
    run as_user member bash -c 'ulimit -f 8; pvrm install foo'
    if [[ $status != 0 ]]; then
        assert_status 3
        assert_equal "$output" 'pvrm: cannot raise the limit of file sizes: Operation not permitted'
        refute_installed foo
    else
        is_installed foo
    fi
}
