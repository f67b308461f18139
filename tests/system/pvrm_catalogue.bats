#!/usr/bin/env bats
# The command line tool and the package catalogue.

bats_require_minimum_version 1.5.0
load helpers

setup_file() { begin_tests catalogue; }

setup() { clean_repository; }

# Makes a package and puts it into the known catalogue.
offer_known() { # NAME [WHAT=VALUE]...
    local name=$1 version=1.0 needs=() argument file
    file=$(package "$@")
    shift
    for argument in "$@"; do
        case $argument in
        version=*) version=${argument#*=} ;;
        needs=*) needs+=("${argument#*=}") ;;
        esac
    done
    offer known "$name" '' "$version" 1 "The package $name for tests" \
        "$(IFS=,; echo "${needs[*]}")" "$file"
}

@test "a package of the catalogue comes with what it needs" {
    offer_known a needs=b
    offer_known b
    run pvrm install a
    assert_status 0
    assert_line 'pvrm: getting a_any_1.0'
    assert_line 'pvrm: getting b_any_1.0'
    assert_equal "$(install_type a)$(install_type b)" XD
    [[ ${lines[1]} =~ ^a\ +1\.0\ +-\ +any\ +catalogue\ .* ]]
    [[ ${lines[2]} =~ ^b\ +1\.0\ +-\ +any\ +catalogue\ .*\ needed\ by\ a$ ]]
}

@test "what is asked for comes in its own right, whichever is named first" {
    offer_known a needs=b
    offer_known b
    run pvrm install a b
    assert_status 0
    assert_equal "$(install_type a)$(install_type b)" XX
    refute_output_has 'needed by'
}

@test "the highest version is taken, or the one that is asked for" {
    offer_known foo version=1.9
    offer_known foo version=1.10
    pvrm install foo
    assert_equal "$(cat /usr/share/foo/about)" 'foo 1.10'
    rm -r "$repository"/{installed,fileindex}/foo /usr/share/foo
    pvrm install --version 1.9 foo
    assert_equal "$(cat /usr/share/foo/about)" 'foo 1.9'
}

@test "a name that nobody has is told" {
    offer_known foo
    run pvrm install bar
    assert_status 1
    assert_line 'pvrm: bar was not found in the package catalogue'
    assert_line "pvrm: bar can't be installed"
}

@test "a backend that knows nothing yet is refreshed, and not otherwise" {
    file=$(package foo)
    offer foo '' 1.0 1 'The package foo' '' "$file"
    run pvrm info foo
    assert_status 0
    assert_line 'Version: 1.0'
    offer other '' 1.0 1 'Another package' '' "$file"
    run pvrm info other
    assert_status 1
    assert_equal "$output" 'pvrm: other is neither installed nor in the package catalogue'
    run pvrm refresh
    assert_status 0
    assert_equal "$output" $'pvrm: refreshing the package catalogue\npvrm: the package catalogue is up to date'
    pvrm info other
}

@test "what the first look at an empty catalogue missed is not told when the second finds it" {
    file=$(package app needs=lib)
    pvrm install "$(package old)"
    for argument in app "$file" old; do
        for word in depends install 'upgrade --dry-run'; do
            : >"$repository/catalogue.txt"
            : >"$repository/catalogue.known"
            offer old '' 2.0 1 'The package old for tests' '' "$(package old version=2.0)"
            offer app '' 1.0 1 'The package app for tests' lib "$file"
            offer lib '' 1.0 1 'The package lib for tests' '' "$(package lib)"
            # shellcheck disable=SC2086
            run --separate-stderr pvrm $word "$argument"
            assert_status 0
            assert_equal "$stderr" ''
        done
        ! is_installed app || pvrm remove app
    done
}

@test "what the second look misses too is told once, after a refresh that fails" {
    offer other '' 1.0 1 'Another package' '' /nowhere
    run --separate-stderr pvrm install "$(package app needs=lib)"
    assert_status 1
    assert_equal "${stderr_lines[0]}" \
        'pvrm: app needs lib, which is neither installed nor to be had from anywhere'
    assert_equal "${#stderr_lines[@]}" 2
    : >"$repository/catalogue.known"
    touch "$repository/catalogue.no-refresh"
    run --separate-stderr pvrm install app
    assert_status 1
    assert_equal "$stderr" "\
pvrm: warning: the package catalogue can't be refreshed
pvrm: app was not found in the package catalogue
pvrm: app can't be installed"
}

@test "a refresh that fails is a warning for a lookup, and a failure of refresh" {
    touch "$repository/catalogue.no-refresh"
    run pvrm info foo
    assert_status 1
    assert_line "pvrm: warning: the package catalogue can't be refreshed"
    run pvrm refresh
    assert_status 1
    assert_line "pvrm: the package catalogue can't be refreshed"
}

@test "refresh --dry-run does nothing, and needs no right" {
    offer foo '' 1.0 1 'The package foo' '' /nowhere
    run setpriv --reuid 65534 --regid 65534 --clear-groups pvrm refresh --dry-run
    assert_status 0
    assert_equal "$output" 'pvrm: would refresh the package catalogue'
    assert_equal "$(cat "$repository/catalogue.known")" ''
}

@test "search finds by name and by description, and marks what is installed" {
    offer_known foo
    pvrm install foo
    offer known foo '' 2.0 1 'A newer foo' '' /nowhere
    offer known bar small 1.0 1 'Plays with foo' '' /nowhere
    offer known else '' 1.0 1 'Nothing of that' '' /nowhere
    run pvrm search foo
    assert_status 0
    assert_equal "$output" "\
$(report_row 'Name (with variant)' Version Description)
$(report_row ------------------- ------- -----------)
$(report_row bar_small 1.0 'Plays with foo')
$(report_row foo 1.0 '[installed] The package foo for tests')
$(report_row foo 2.0 '[1.0 installed] A newer foo')"
    run pvrm search 'ba?'
    assert_equal "${#lines[@]} ${lines[2]}" "3 $(report_row bar_small 1.0 'Plays with foo')"
    run pvrm search zzz
    assert_status 1
    assert_equal "$output" 'pvrm: nothing in the package catalogue matches zzz'
}

@test "texts of the catalogue can't steer the terminal" {
    offer known foo '' $'1\e[31m' 1 $'evil\e]0;title\a text\xe2\x80\xae' '' /nowhere
    run pvrm search foo
    assert_status 0
    assert_output_has '1\x1B[31m '
    assert_output_has ' evil\x1B]0;title\x07 text\xE2\x80\xAE'
    for word in 'search foo' 'info foo'; do
        for format in '' '--format ldif' '--format csv'; do
            run on_terminal "pvrm $word $format"
            assert_status 0
            assert_output_has '1\x1B[31m'
            [[ $output != *$'\e'* ]]
        done
    done
}

@test "names of the catalogue that would leave their place are refused" {
    offer known '../../etc/evil' '' 1.0 1 'An evil package' '' /nowhere
    offer known foo '' '1;touch /tmp/evil' 1 'A package foo' '' /nowhere
    offer known bar '' 1.0 1 'A package bar' '../../etc/evil' /nowhere
    run pvrm install ../../etc/evil
    assert_status 1
    run pvrm install foo
    assert_status 1
    assert_line "pvrm: foo can't be installed: its version holds characters that are not allowed"
    run pvrm install bar
    assert_status 1
    assert_line 'pvrm: the package ../../etc/evil is refused: its name holds characters that are not allowed'
    assert_line 'pvrm: bar was not installed'
    [[ ! -e /tmp/evil && ! -e /etc/evil ]]
}

@test "packages called like a package file are refused" {
    offer known evil.vrk '' 1.0 1 'An evil package' '' /nowhere
    offer_known foo needs=evil.vrk
    run pvrm install foo
    assert_status 1
    assert_line "pvrm: foo can't be installed: a package called evil.vrk would be taken for a package file"
    refute_installed foo
}

@test "a package of the catalogue that is not signed by a trusted one is refused" {
    offer_known foo
    mv "$(signer_in_store)" /tmp/aside
    run pvrm install foo
    mv /tmp/aside "$(signer_in_store)"
    assert_status 1
    assert_output_has "can't be trusted: its signer is not trusted here, as there is no certificate"
    assert_line 'pvrm: foo was not installed'
    refute_installed foo
}

@test "a package that arrives cut is told" {
    offer_known foo
    touch "$repository/catalogue.short"
    run pvrm install foo
    assert_status 1
    assert_output_has 'pvrm: the catalogue did not deliver all'
    assert_line 'pvrm: foo was not installed'
}

@test "a change of the catalogue after the question is not carried out unasked" {
    offer_known foo
    # The first package's script puts a newer second one into the catalogue.
    newer=$(package foo version=2.0)
    first=$(package first "init/00-add.sh=echo 'foo||2.0|1|newer||$newer|' >>$repository/catalogue.known")
    run pvrm install "$first" foo
    assert_status 0
    is_installed first
    assert_equal "$(version_of foo)" 1.0
}

@test "what is in a backend's list may be missing" {
    touch "$repository/catalogue.no-list"
    run pvrm search foo
    assert_status 1
    assert_line 'pvrm: nothing in the package catalogue matches foo'
    run pvrm install foo
    assert_status 1
    assert_line 'pvrm: foo was not found in the package catalogue'
}

@test "a backend without connection is told, and files can be installed nonetheless" {
    touch "$repository/catalogue.no-connection"
    run pvrm search foo
    assert_status 1
    assert_equal "$output" 'pvrm: the catalogue backend text.so gives no connection; its settings are in /etc/vrm.conf'
    run pvrm install "$(package foo)"
    assert_status 0
    is_installed foo
}

@test "memory that ends is told, and the lock is given back" {
    touch "$repository/catalogue.no-memory"
    for word in 'search foo' 'install foo' refresh; do
        # shellcheck disable=SC2086
        run pvrm $word
        assert_status 1
        assert_equal "$output" 'pvrm: there is not enough memory'
        [[ ! -e $repository/lock ]]
    done
}

@test "a backend that is missing, or lacks a function, is told" {
    cp /etc/vrm.conf /tmp/vrm.conf
    sed -i 's/^vrc_backend=.*/vrc_backend=missing.so/' /etc/vrm.conf
    run pvrm search foo
    assert_status 1
    assert_line "pvrm: the catalogue backend missing.so can't be loaded: correct vrc_backend in /etc/vrm.conf, or install the backend in /usr/lib/vrm"
    g++ -shared -fPIC -o /usr/lib/vrm/missing.so -x c++ - <<<'extern "C" void *vrc_connect() { return nullptr; }'
    run pvrm install "$(package foo)"
    cp /tmp/vrm.conf /etc/vrm.conf
    assert_status 0
    assert_line "pvrm: the catalogue backend missing.so can't be loaded: correct vrc_backend in /etc/vrm.conf, or install the backend in /usr/lib/vrm"
    is_installed foo
}

# Names another backend in the configuration.
use_backend() { # NAME
    sed -i "s/^vrc_backend=.*/vrc_backend=$1/" /etc/vrm.conf
}

@test "without a backend nothing is said of what the catalogue lacks" {
    local gone="pvrm: the catalogue backend missing.so can't be loaded: correct vrc_backend in /etc/vrm.conf, or install the backend in /usr/lib/vrm"
    file=$(package app needs=lib)
    pvrm install "$(package have)"
    use_backend missing.so
    local failed=''
    check() { # EXPECTED WORD...
        run --separate-stderr pvrm "${@:2}"
        # The first line is the loader's.
        [[ $status == 1 && ${stderr#*$'\n'} == "$gone$1" ]] || failed+="${*:2}: $stderr"$'\n'
    }
    check $'\npvrm: foo can\'t be installed' install foo
    check $'\npvrm: foo can\'t be installed\npvrm: bar can\'t be installed
pvrm: 2 of 2 installations failed:
  foo: the package catalogue can\'t be used
  bar: the package catalogue can\'t be used' install -n foo bar
    check $'\npvrm: app needs lib, which is not installed\npvrm: '"$file can't be installed" \
        install "$file"
    check $'\npvrm: have can\'t be upgraded' upgrade have
    check '' upgrade
    check $'\npvrm: what foo needs can\'t be told' depends foo
    check $'\npvrm: app needs lib, which is not installed\npvrm: what '"$file needs can't be told" \
        depends "$file"
    check '' info foo
    check '' search foo
    check '' refresh
    use_backend text.so
    touch "$repository/catalogue.no-connection"
    run --separate-stderr pvrm install foo
    use_backend text.so
    assert_equal "$failed" ''
    assert_equal "$stderr" "\
pvrm: the catalogue backend text.so gives no connection; its settings are in /etc/vrm.conf
pvrm: foo can't be installed"
}

@test "a backend for another interface is refused, and one without a number is of the first" {
    build_text_backend later.so -DABI=99
    use_backend later.so
    run --separate-stderr pvrm refresh
    use_backend text.so
    assert_status 1
    assert_equal "$stderr" "\
backend later.so was built for interface 99; this program supports 1 to 2
pvrm: the catalogue backend later.so can't be loaded: correct vrc_backend in /etc/vrm.conf, or install the backend in /usr/lib/vrm"
    grep -q '\[ERROR\] backend later.so was built for interface 99; this program supports 1 to 2$' \
        /var/log/pvrm.log

    run --separate-stderr pvrm config vrc_backend later.so
    assert_status 1
    assert_equal "${stderr_lines[0]}" \
        'backend later.so was built for interface 99; this program supports 1 to 2'

    build_text_backend first.so -DABI=0
    echo '5|0||not asked for' >"$repository/catalogue.reports"
    offer foo '' 1.0 1 'The package foo for tests' '' "$(package foo)"
    use_backend first.so
    run --separate-stderr pvrm install foo
    use_backend text.so
    assert_status 0
    assert_equal "$stderr" ''
    is_installed foo
}

@test "what a backend reports is printed, and a directory that can't be read is a failure of refresh" {
    cat >"$repository/catalogue.reports" <<'END'
1|2|/srv/none|
2|5|/srv/part|
3|0|/srv/bad.vrk|not a package file, or a damaged one
4|13|/srv/closed.vrk|
4|13|/srv/closed.vrk|
5|0||a warning
6|5||an error
END
    reported=$'pvrm: cannot read directory /srv/none: No such file or directory
pvrm: cannot read all of directory /srv/part: Input/output error
pvrm: skipping /srv/bad.vrk: not a package file, or a damaged one
pvrm: skipping /srv/closed.vrk: Permission denied
pvrm: warning: a warning
pvrm: an error: Input/output error'
    run --separate-stderr pvrm refresh
    assert_status 1
    assert_equal "$output" 'pvrm: refreshing the package catalogue'
    assert_equal "$stderr" "$reported
pvrm: the package catalogue is up to date, except for what cannot be read"

    # A word that finds the catalogue empty refreshes it, and then goes on.
    offer foo '' 1.0 1 'The package foo for tests' '' "$(package foo)"
    for word in 'search foo' 'info foo' 'depends foo' 'install foo'; do
        : >"$repository/catalogue.known"
        # shellcheck disable=SC2086
        run --separate-stderr pvrm $word
        assert_status 0
        [[ $stderr == "$reported"* ]]
        refute_output_has "can't be refreshed"
    done

    touch "$repository/catalogue.no-refresh"
    run --separate-stderr pvrm refresh
    assert_status 1
    assert_equal "$stderr" "$reported
pvrm: the package catalogue can't be refreshed"
    : >"$repository/catalogue.known"
    run --separate-stderr pvrm install bar
    assert_equal "$stderr" "$reported
pvrm: warning: the package catalogue can't be refreshed
pvrm: bar was not found in the package catalogue
pvrm: bar can't be installed"
}

@test "reports other than of a directory leave refresh a success" {
    echo '3|0|/srv/bad.vrk|it is cut short' >"$repository/catalogue.reports"
    run pvrm refresh
    assert_status 0
    assert_equal "$output" $'pvrm: refreshing the package catalogue
pvrm: skipping /srv/bad.vrk: it is cut short
pvrm: the package catalogue is up to date'
    printf '5|0||a\e[31m text\n' >"$repository/catalogue.reports"
    run pvrm refresh
    assert_line 'pvrm: warning: a\x1B[31m text'
}

@test "depends shows the tree, with what is installed, circles and repetitions" {
    offer_known a needs=b needs=c
    offer_known b needs=d
    offer_known c needs=d needs=a
    offer_known d needs=e
    offer_known e
    pvrm install e
    run pvrm depends a
    assert_status 0
    assert_equal "$output" "\
a 1.0
  b 1.0 (available remotely)
    d 1.0 (available remotely)
      e 1.0 (installed)
  c 1.0 (available remotely)
    d 1.0 (available remotely), see above
    a (see the first line)"
}

@test "depends tells once why there is no tree" {
    offer_known a needs=nobody
    run pvrm depends nothing
    assert_status 1
    assert_equal "$output" 'pvrm: nothing was not found in the package catalogue'
    run pvrm depends a
    assert_status 1
    assert_line 'pvrm: a needs nobody, which is neither installed nor to be had from anywhere'
    assert_line "pvrm: what a needs can't be told"
}
