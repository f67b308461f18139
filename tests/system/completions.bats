#!/usr/bin/env bats
# What the shell offers behind the commands.

load helpers

setup_file() {
    cd "$BATS_FILE_TMPDIR"
    vrk-build keygen /O=x --key key --cert cert
    cp cert "/var/lib/vrm/certstore/$(openssl x509 -in cert -noout -subject_hash).crt"
    pvrm -y init
    for name in alpha alps beta; do
        mkdir -p "$name/dump"
        echo "$name" >"$name/dump/name"
        printf 'evrkName: %s\nevrkVersion: 1\nevrkArchitecture: any\nevrkDescription: x\n' "$name" \
            >"$name/package.ldif"
        pvrm -y install "./$(vrk-build pack "$name" --key key --cert cert)"
    done
}

setup() {
    cd "$BATS_TEST_TMPDIR"
    mkdir -p 'al dir' dir.vrk
    touch 'al one.vrk' two.vrk alx.txt cert.pem
}

# complete_line COMMAND [ARGUMENT]...: what is offered for the last argument, a line each, sorted.
complete_line() {
    # shellcheck disable=SC1090
    source "/usr/share/bash-completion/completions/$1"
    local spec function
    spec=$(complete -p "$1")
    function=${spec#*-F }
    COMP_WORDS=("$@")
    COMP_CWORD=$(($# - 1))
    "${function%% *}" "$1" "${COMP_WORDS[COMP_CWORD]}" "${COMP_WORDS[COMP_CWORD - 1]}"
    ((${#COMPREPLY[@]} == 0)) || printf '%s\n' "${COMPREPLY[@]}" | LC_ALL=C sort
}

@test "pvrm offers all its words, and none of another program's" {
    assert_equal "$(complete_line pvrm in)" "info
init
install"
    assert_equal "$(complete_line pvrm -y inst)" install
    assert_equal "$(complete_line pvrm '' | wc -l)" \
        "$(pvrm --help | sed '1,/^Subcommands/d' | grep -c '^  [a-z]')"
    assert_equal "$(complete_line pvrm xyz)" ""
}

@test "pvrm offers the options of a word, and the common ones" {
    assert_equal "$(complete_line pvrm --v)" "--verbose"
    assert_equal "$(complete_line pvrm install --v)" "--variant
--verbose
--version"
    assert_equal "$(complete_line pvrm list --d)" "--dry-run"
    assert_equal "$(complete_line pvrm install --variant '')" ""
    assert_equal "$(complete_line pvrm list --f)" "--format"
    assert_equal "$(complete_line pvrm saved --p)" "--prune"
    assert_equal "$(complete_line pvrm saved --prune '')" ""
}

@test "pvrm offers the forms of a word" {
    assert_equal "$(complete_line pvrm list --format '')" "csv
ldif
table
text"
    assert_equal "$(complete_line pvrm info --format f)" form
    assert_equal "$(complete_line pvrm refresh --format '')" ""
}

@test "pvrm offers installed packages where it takes them" {
    local word
    assert_equal "$(complete_line pvrm list al)" "alpha
alps"
    for word in info files depends verify why; do
        assert_equal "$word $(complete_line pvrm "$word" alp)" "$word alpha
alps"
        assert_equal "$word $(complete_line pvrm -q "$word" b)" "$word beta"
    done
    assert_equal "$(complete_line pvrm install be)" ""
    assert_equal "$(complete_line pvrm refresh al)" ""
}

@test "pvrm offers package files, directories and certificates where it takes them" {
    assert_equal "$(complete_line pvrm install '')" "al dir
al one.vrk
dir.vrk
two.vrk"
    assert_equal "$(complete_line pvrm info al)" "al dir
al one.vrk
alpha
alps"
    assert_equal "$(complete_line pvrm install two.vrk --dir '')" "al dir
dir.vrk"
    assert_equal "$(complete_line pvrm trust ce)" cert.pem
    assert_equal "$(complete_line pvrm trust --l)" --list
    fingerprint=$(pvrm trust --list | sed -n 's/^SHA-256: *//p' | tr -d :)
    [[ ${#fingerprint} == 64 ]]
    assert_equal "$(complete_line pvrm distrust '')" "${fingerprint:0:16}"
    assert_equal "$(complete_line pvrm --r)" --restricted
    assert_equal "$(complete_line pvrm owner /etc/hostn)" /etc/hostname
}

@test "pvrm offers formats of the history, and keys and values of the configuration" {
    assert_equal "$(complete_line pvrm log --format '')" "csv
ldif
raw
text"
    assert_equal "$(complete_line pvrm log --o)" --oldest-first
    assert_equal "$(complete_line pvrm config vrc_d)" "vrc_dirs
vrc_dirs_cache"
    assert_equal "$(complete_line pvrm config arch_name m)" mips
    assert_equal "$(complete_line pvrm config vrc_backend vrc)" vrc-dirs.so
    assert_equal "$(complete_line pvrm config vrc_dirs '')" "al dir
dir.vrk"
    assert_equal "$(complete_line pvrm config dist_name '')" ""
}

@test "pvrm offers words and files where there is no repository" {
    mv /var/lib/vrm /var/lib/vrm.away
    run complete_line pvrm info al
    mv /var/lib/vrm.away /var/lib/vrm
    assert_equal "$output" "al dir
al one.vrk"
}

@test "vrk-build offers its words, their options and their files" {
    assert_equal "$(complete_line vrk-build '')" "keygen
pack
show"
    assert_equal "$(complete_line vrk-build pack --)" "--base
--cert
--help
--key
--output"
    assert_equal "$(complete_line vrk-build keygen --d)" --days
    assert_equal "$(complete_line vrk-build show --)" "--cert
--help
--store"
    assert_equal "$(complete_line vrk-build pack '')" "al dir
dir.vrk"
    assert_equal "$(complete_line vrk-build pack 'al dir' --key ce)" cert.pem
    assert_equal "$(complete_line vrk-build pack 'al dir' -o '')" "al dir
al one.vrk
dir.vrk
two.vrk"
    assert_equal "$(complete_line vrk-build show t)" two.vrk
    assert_equal "$(complete_line vrk-build show two.vrk --store d)" dir.vrk
    assert_equal "$(complete_line vrk-build keygen /O=x --days '')" ""
}
