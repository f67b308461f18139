# shellcheck shell=bash
# What the tests about attacks share: load ../helpers, then this. It makes package files of any kind
# with standard commands alone, so that a package can be what vrk-build would never make.
#
# A test makes a package step by step, in the directory $work:
#
#     begin foo 1.0 data/usr/share/foo/about=hello    the tree, its lists and its description
#     echo evil >"$tree/data/usr/share/foo/about"     ...or whatever else is wrong with it
#     seal                                            the archive, its signature and the file $vrk
#
# and then lets a command meet it:
#
#     attack pvrm -y install "$vrk"
#     assert_repelled 'what failed' 'why'
# shellcheck disable=SC2119,SC2120  # arguments of helpers are optional
# shellcheck source=SCRIPTDIR/machine.bash
source "${BASH_SOURCE[0]%/*}/machine.bash"
# shellcheck source=SCRIPTDIR/../package_file.bash
source "${BASH_SOURCE[0]%/*}/../package_file.bash"

# --- Signers --------------------------------------------------------------------------------------

# Makes a key and a self-signed certificate, $keys/NAME.key and .pem, with the subject as packages
# name it in NAME.subject.
make_key() { # NAME SUBJECT BITS [OPTION OF OPENSSL REQ]...
    openssl req -x509 -sha256 -newkey "rsa:$3" -nodes -subj "$2" -keyout "$keys/$1.key" \
        -out "$keys/$1.pem" "${@:4}" 2>"$keys/openssl.log" || {
        cat "$keys/openssl.log" >&2
        return 1
    }
    note_subject "$1"
}

# The same with dates, in the form YYYYMMDDHHMMSSZ.
make_dated_key() { # NAME SUBJECT START END
    local ca=$keys/$1.ca
    mkdir "$ca"
    : >"$ca/index.txt"
    printf '%s\n' '[ca]' 'default_ca = own' '[own]' "database = $ca/index.txt" \
        "new_certs_dir = $ca" 'rand_serial = yes' 'default_md = sha256' 'policy = any' '[any]' \
        'organizationName = optional' 'commonName = optional' >"$ca/config"
    openssl req -new -newkey rsa:2048 -nodes -subj "$2" -keyout "$keys/$1.key" \
        -out "$ca/request" 2>"$keys/openssl.log"
    openssl ca -selfsign -preserveDN -batch -notext -config "$ca/config" -keyfile "$keys/$1.key" \
        -in "$ca/request" -out "$keys/$1.pem" -startdate "$3" -enddate "$4" 2>"$keys/openssl.log"
    note_subject "$1"
}

note_subject() { # NAME
    local line
    line=$(openssl x509 -noout -subject -nameopt compat -in "$keys/$1.pem")
    printf '%s' "${line#subject=}" >"$keys/$1.subject"
}

# Puts a certificate into the store by hand, as an administrator of old did.
store() { # NAME
    cp "$keys/$1.pem" "$repository/certstore/$(openssl x509 -noout -hash -in "$keys/$1.pem").crt"
}

# The signers that a machine knows and one that it does not. Called by setup_file.
set_up_attacks() {
    export keys=$BATS_FILE_TMPDIR/keys
    mkdir "$keys"
    make_key builder /O=Test/CN=Builder 2048
    store builder
    make_bystanders
    pvrm refresh
}

# A package of the machine and a file that no package may ever change.
make_bystanders() {
    begin hello 1.0 data/usr/share/hello/about='hello 1.0' conf/etc/hello.conf=setting
    seal
    pvrm install "$vrk"
    rm -rf /srv/victim
    mkdir /srv/victim
    echo untouched >/srv/victim/file
}

# --- Packages -------------------------------------------------------------------------------------

# The text of a description; more lines can follow the two words.
description() { # NAME VERSION [LINE]...
    printf 'evrmVersion: 2.0\nevrkName: %s\nevrkVersion: %s\nevrkArchitecture: any\n' "$1" "$2"
    printf 'evrkCreator: Test\nevrkDescription: The package %s for tests\n' "$1"
    (($# < 3)) || printf '%s\n' "${@:3}"
}

# Begins a package in a new directory $work: its tree, with lists and description, in $tree, and the
# description of its head in $work/head. A package that is given no files has one.
begin() { # NAME VERSION [FORK/PATH=CONTENT]...
    local file
    export work tree vrk
    work=$(mktemp -d "${BATS_TEST_TMPDIR:-$BATS_FILE_TMPDIR}/work.XXXXXX")
    tree=$work/tree
    vrk=$work/$1_any_$2.vrk
    mkdir -p "$tree/info"
    (($# > 2)) || set -- "$1" "$2" "data/usr/share/$1/about=$1 $2"
    for file in "${@:3}"; do
        mkdir -p "$tree/$(dirname "${file%%=*}")"
        printf '%s\n' "${file#*=}" >"$tree/${file%%=*}"
    done
    description "$1" "$2" >"$work/head"
    cp "$work/head" "$tree/info/desc.txt"
    make_lists
}

# Makes the hash lists of $tree, as its files are now.
make_lists() {
    local fork
    mkdir -p "$tree/hash"
    for fork in data conf dump init info; do
        [[ ! -d $tree/$fork ]] || (cd "$tree/$fork" && find . -type f -print0 |
            xargs -0r sha1sum -z | sed -z 's,  \./,:,' | tr '\0' '\n') >"$tree/hash/$fork.txt"
    done
}

# Writes the tree as an archive to stdout.
archive() {
    (cd "$tree" && find . ! -type d -printf '%P\0' | LC_ALL=C sort -z |
        cpio --null -o -H newc --quiet -R 0:0)
}

# Writes one member of an archive in the format newc to stdout, to stand ahead of `archive`. The
# mode is octal with the file type: 100644 of a file, 120777 of a link, 020666 of a device.
member() { # PATH MODE [CONTENT [MAJOR MINOR]]
    local LC_ALL=C content=${3-}
    printf '070701%08X%08X%08X%08X%08X%08X%08X%08X%08X%08X%08X%08X%08X%s\0' \
        $((++inode)) $((8#$2)) 0 0 1 0 ${#content} 0 0 "${4:-0}" "${5:-0}" $((${#1} + 1)) 0 "$1"
    pad $((110 + ${#1} + 1))
    printf '%s' "$content"
    pad ${#content}
}
inode=1000

pad() { # LENGTH
    local zeros=$(((4 - $1 % 4) % 4))
    ((zeros == 0)) || head -c $zeros /dev/zero
}

# The two attributes of a signature of $work/payload.
signature() { # [NAME]
    local signer=${1:-builder}
    printf 'evrkRsaSigSubj: %s\n' "$(<"$keys/$signer.subject")"
    signature_of "$work/payload" "$keys/$signer.key"
}

# Makes a certificate of a key with the exponent 1, which fits every signature that is its own padded
# digest.
make_open_key() { # NAME SUBJECT
    local modulus
    modulus=$(openssl rsa -in "$keys/builder.key" -noout -modulus)
    printf '%s\n' 'asn1=SEQUENCE:key' '[key]' 'a=SEQUENCE:algorithm' 'b=BITWRAP,SEQUENCE:numbers' \
        '[algorithm]' 'a=OID:rsaEncryption' 'b=NULL' \
        '[numbers]' "a=INTEGER:0x${modulus#Modulus=}" 'b=INTEGER:1' >"$keys/$1.conf"
    openssl asn1parse -genconf "$keys/$1.conf" -noout -out "$keys/$1.der"
    openssl pkey -pubin -inform DER -in "$keys/$1.der" -out "$keys/$1.pub"
    openssl x509 -new -force_pubkey "$keys/$1.pub" -subj "$2" -days 30 -CA "$keys/builder.pem" \
        -CAkey "$keys/builder.key" -out "$keys/$1.pem" 2>"$keys/openssl.log"
    note_subject "$1"
}

# What fits $work/payload for such a key of 2,048 bits: nobody's key is needed to make it.
padded_digest() {
    printf '\0\1'
    head -c 218 /dev/zero | tr '\0' '\377'
    printf '\0\60\41\60\11\6\5\53\16\3\2\32\5\0\4\24'
    openssl dgst -sha1 -binary "$work/payload"
}

# Ends a package: what is not there yet of $work/payload and $work/signature is made, and the file
# $vrk of $work/head, the signature and the payload.
seal() { # [SIGNER]
    [[ -e $work/payload ]] || archive | gzip -n >"$work/payload"
    [[ -e $work/signature ]] || signature "${1:-builder}" >"$work/signature"
    cat "$work/head" "$work/signature" >"$work/description"
    join_package "$work/description" "$work/payload" "$vrk"
}

# Exchanges the head of the finished package for one that says something else.
forge_head() { # NAME VERSION [LINE]...
    description "$@" >"$work/head"
    seal
}

# --- Attacks --------------------------------------------------------------------------------------

# Runs a command that meets something hostile, as `run` does, and notes what it changed on the
# machine in $changed. A command that hangs is ended.
attack() { # COMMAND [ARGUMENT]...
    local list_before
    list_before=$(pvrm list 2>&1 || true)
    record_machine "$BATS_TEST_TMPDIR/before"
    run timeout -k 5 120 "$@" </dev/null
    record_machine "$BATS_TEST_TMPDIR/after"
    changed=$(machine_changes "$BATS_TEST_TMPDIR/before" "$BATS_TEST_TMPDIR/after")
    [[ $(pvrm list 2>&1 || true) == "$list_before" ]] ||
        changed+=$'\nthe packages that pvrm lists'
}

# After `attack`: nothing on the machine is different.
assert_unchanged() {
    [[ -z $changed ]] || {
        printf 'the machine was changed:\n%s\nand the output was:\n%s\n' "$changed" "$output" >&2
        return 1
    }
}

# After `attack`: one line of the output is from the program itself and holds all of these texts.
assert_message() { # TEXT...
    local line text
    for line in "${lines[@]}"; do
        [[ $line == "pvrm: "* || $line == "vrk-build: "* ]] || continue
        for text in "$@"; do
            [[ $line == *"$text"* ]] || continue 2
        done
        return 0
    done
    printf 'no message holds: '
    printf '<%s> ' "$@"
    printf '\nin the output:\n%s\n' "$output"
    return 1
} >&2

# After `attack`: the command failed by itself, said so in plain words, and left the machine as it
# was.
assert_repelled() { # TEXT OF THE MESSAGE...
    # 124 and 137 are of a command that hung, those above 128 of one that a signal ended.
    ((status > 0 && status < 124)) || {
        printf 'ended with status %d and the output:\n%s\n' "$status" "$output" >&2
        return 1
    }
    refute_output_has vrm_
    refute_output_has Sanitizer
    refute_output_has 'runtime error:'
    assert_message "$@"
    assert_unchanged
}

# A sound package is installed, and removed again: the attack is not in anybody's way.
assert_sound_one_installs() { # [NAME [VERSION]]
    begin "${1:-sound}" "${2:-1.0}"
    seal
    run pvrm -y install "$vrk"
    assert_status 0
    is_installed "${1:-sound}"
    run pvrm -y remove "${1:-sound}"
    assert_status 0
}

# --- The life of a test file ----------------------------------------------------------------------

# After a test that failed the machine may be anything; the next one gets it as it was.
restore_machine() {
    chown -h root:root "$repository/stagearea" || true
    [[ -d $repository/stagearea && ! -L $repository/stagearea ]] || rm -rf "$repository/stagearea"
    clean_repository
    rm -rf "$repository/lock"
    make_bystanders
}

# What a refused attempt left in the stage area is not the next test's.
setup() {
    rm -rf "${repository:?}"/stagearea/*
}

teardown() {
    [[ -n ${BATS_TEST_COMPLETED-} ]] || restore_machine >"$BATS_TEST_TMPDIR/restored" 2>&1
}
