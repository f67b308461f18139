#!/usr/bin/env bats
# Who is trusted: trust, trust --list and distrust.

bats_require_minimum_version 1.5.0
load helpers
load package_file

setup_file() {
    make_signer
    # Another certificate of the same subject, and one of a subject with the same hash, which goes by
    # the subject without its case.
    make_certificate same rsa:2048 '/O=Test/CN=Builder'
    make_certificate alike rsa:2048 '/O=test/CN=builder'
    make_certificate other rsa:2048 '/O=Other/CN=Builder'
}

setup() {
    cd "$BATS_FILE_TMPDIR"
    clean_repository
    rm -rf "$repository/certstore" /tmp/started /tmp/go /tmp/out
    mkdir "$repository/certstore"
}

make_certificate() { # NAME KEY-TYPE SUBJECT [ARGUMENT-OF-OPENSSL]...
    openssl req -x509 -newkey "$2" -nodes -subj "$3" -days 30 "${@:4}" \
        -keyout "$BATS_FILE_TMPDIR/$1.key" -out "$BATS_FILE_TMPDIR/$1.pem" 2>/dev/null
}

# One with both dates, as YYYYMMDDHHMMSSZ.
make_dated_certificate() { # NAME SUBJECT START END
    local dir=$BATS_FILE_TMPDIR/ca-$1
    mkdir -p "$dir"
    printf '[ca]\ndefault_ca=a\n[a]\ndatabase=%s\nnew_certs_dir=%s\nrand_serial=yes\ndefault_md=sha256\npolicy=p\n[p]\ncommonName=supplied\n[req]\ndistinguished_name=n\n[n]\n' \
        "$dir/index" "$dir" >"$dir/cnf"
    : >"$dir/index"
    openssl req -new -config "$dir/cnf" -key "$signer_key" -subj "$2" -out "$dir/request"
    openssl ca -selfsign -preserveDN -batch -notext -config "$dir/cnf" -keyfile "$signer_key" \
        -in "$dir/request" -out "$BATS_FILE_TMPDIR/$1.pem" -startdate "$3" -enddate "$4" 2>/dev/null
}

fingerprint_of() { # FILE
    openssl x509 -noout -fingerprint -sha256 -in "$1" | sed 's/.*=//'
}

# The path in the store that belongs to a certificate.
place_of() { # FILE
    echo "$repository/certstore/$(openssl x509 -noout -subject_hash -in "$1").crt"
}

# What is in the store, with its content.
store_listing() {
    (cd "$repository/certstore" && find . -type f -exec sha1sum {} + | sort)
}

assert_same_certificate() { # FILE FILE
    assert_equal "$(openssl x509 -in "$1")" "$(openssl x509 -in "$2")"
}

# --- trust ----------------------------------------------------------------------------------------

# The line of a certificate's key in the file of checked keys.
key_line() { # FILE
    openssl x509 -in "$1" -noout -pubkey | openssl pkey -pubin -outform DER | sha256sum |
        cut -d' ' -f1
}

@test "the key of who is trusted is noted as checked, once" {
    rm -f "$repository/checked-keys"
    pvrm -y trust other.pem
    assert_equal "$(stat -c '%a %U' "$repository/checked-keys")" "644 root"
    assert_equal "$(cat "$repository/checked-keys")" "checked keys, format 1
$(key_line other.pem)"
    # Also of a certificate that was put into the store by hand before.
    cp same.pem "$(place_of same.pem)"
    pvrm -n trust same.pem
    assert_equal "$(wc -l <"$repository/checked-keys")" 2
    pvrm -y trust same.pem
    pvrm -y trust same.pem
    assert_equal "$(cat "$repository/checked-keys")" "checked keys, format 1
$(key_line other.pem)
$(key_line same.pem)"
}

@test "a file of checked keys that cannot be written is a warning" {
    rm -f "$repository/checked-keys"
    mkdir "$repository/checked-keys"
    run pvrm -y trust other.pem
    rmdir "$repository/checked-keys"
    assert_status 0
    assert_output_has "pvrm: warning: cannot write $repository/checked-keys: "
    [[ -f $(place_of other.pem) ]]
}

@test "trust shows a certificate and stores it under its right name" {
    run pvrm trust --dry-run "$signer_cert"
    assert_status 0
    assert_line "pvrm: would trust it as $(signer_in_store)"
    [[ ! -e $(signer_in_store) ]]
    run pvrm trust --yes "$signer_cert"
    assert_status 0
    assert_line 'Subject:      /O=Test/CN=Builder'
    assert_output_has 'Valid from:   '
    assert_output_has 'Valid until:  '
    assert_line "SHA-256:      $(fingerprint_of "$signer_cert")"
    assert_line "pvrm: trusted as $(signer_in_store)"
    assert_same_certificate "$(signer_in_store)" "$signer_cert"
    assert_equal "$(stat -c '%a %u' "$(signer_in_store)")" '644 0'
    assert_equal "$(ls -A "$repository/certstore")" "$(basename "$(signer_in_store)")"
    run pvrm trust "$signer_cert"
    assert_status 0
    assert_line 'pvrm: this certificate is trusted already'
    pvrm install "$(package foo)"
}

@test "on a terminal trust asks, and no is no" {
    answer_on_terminal "pvrm trust $signer_cert" 'Trust packages of this signer? [Y/n]' n
    assert_status 1
    assert_output_has 'pvrm: nothing was changed'
    [[ ! -e $(signer_in_store) ]]
    answer_on_terminal "pvrm trust $signer_cert" 'Trust packages of this signer? [Y/n]' y
    assert_status 0
    [[ -e $(signer_in_store) ]]
}

@test "without a terminal trust needs --yes" {
    run pvrm trust "$signer_cert"
    assert_status 2
    assert_line 'pvrm: nothing was changed: without a terminal to ask on, pvrm trust needs --yes'
    run pvrm trust --replace "$signer_cert"
    assert_status 2
    assert_equal "$(store_listing)" ''
}

@test "what is no usable certificate is not trusted" {
    run pvrm trust --yes /etc/passwd
    assert_status 1
    assert_equal "$output" 'pvrm: /etc/passwd holds no certificate in PEM form'
    run pvrm trust --yes /nowhere
    assert_equal "$output" 'pvrm: cannot open /nowhere: No such file or directory'
    mkfifo fifo
    run timeout 60 pvrm trust --yes fifo
    assert_equal "$output" 'pvrm: fifo is not a regular file'
    make_certificate long rsa:2048 /CN=Eternal -days 20000
    run pvrm trust --yes long.pem
    assert_status 1
    assert_line 'pvrm: cannot trust long.pem: its dates pass the year 2049, which counts as expired; use one that ends earlier'
    assert_output_has "Valid until:  20"
    assert_equal "$(store_listing)" ''
}

@test "keys of other types are not trusted" {
    make_certificate elliptic 'ec' /CN=Elliptic -pkeyopt ec_paramgen_curve:prime256v1
    make_certificate edwards ed25519 /CN=Edwards
    make_certificate padding rsa-pss /CN=Padding -pkeyopt rsa_keygen_bits:2048
    for name in elliptic edwards padding; do
        run pvrm trust --yes "$name.pem"
        assert_status 1
        assert_line "pvrm: cannot trust $name.pem: its key is not an RSA key, and packages are signed with RSA"
    done
    assert_equal "$(store_listing)" ''
}

@test "RSA keys under 2048 bits are not trusted" {
    for bits in 512 1024 2040; do
        make_certificate short "rsa:$bits" /CN=Short
        run pvrm trust --yes short.pem
        assert_status 1
        assert_line "pvrm: cannot trust short.pem: its RSA key has $bits bits, and at least 2048 are needed; make a new key and certificate"
    done
    assert_equal "$(store_listing)" ''
}

@test "certificates that may not sign are not trusted, those that do not say so are" {
    local usage
    for usage in keyCertSign,cRLSign critical,keyEncipherment; do
        make_certificate authority rsa:2048 /CN=Authority -addext "keyUsage=$usage"
        run pvrm trust --yes authority.pem
        assert_status 1
        assert_line 'pvrm: cannot trust authority.pem: it may not sign, as its key usage lacks digitalSignature; use a certificate for signatures'
    done
    assert_equal "$(store_listing)" ''
    make_certificate authority rsa:2048 /CN=Authority -addext 'keyUsage=digitalSignature,keyCertSign'
    pvrm trust --yes authority.pem
    # The one of openssl req is an authority's, and has no key usage.
    pvrm trust --yes other.pem
}

# --- Another certificate of the subject -----------------------------------------------------------

@test "another certificate of the subject is not replaced without --replace" {
    pvrm trust --yes "$signer_cert"
    before=$(store_listing)
    for arguments in '' --yes --dry-run; do
        # shellcheck disable=SC2086
        run pvrm trust $arguments same.pem
        assert_line "pvrm: $(signer_in_store) holds another certificate of this subject, with the SHA-256 $(fingerprint_of "$signer_cert"); trusting this one, with the SHA-256 $(fingerprint_of same.pem), replaces it"
        assert_equal "$(store_listing)" "$before"
    done
    run pvrm trust --yes same.pem
    assert_status 1
    assert_line 'pvrm: nothing was changed: to replace what the store holds, add --replace'
    run pvrm trust --yes --replace same.pem
    assert_status 0
    assert_line "pvrm: trusted as $(signer_in_store)"
    assert_output_has "$(fingerprint_of "$signer_cert")"
    assert_same_certificate "$(signer_in_store)" same.pem
}

@test "on a terminal the replacement is a question whose default is no" {
    pvrm trust --yes "$signer_cert"
    before=$(store_listing)
    for answer in '' n; do
        answer_on_terminal "pvrm trust same.pem" 'Trust this signer instead? [y/N]' "$answer"
        assert_status 1
        assert_equal "$(store_listing)" "$before"
    done
    answer_on_terminal "pvrm trust --yes same.pem"
    assert_status 1
    assert_equal "$(store_listing)" "$before"
    answer_on_terminal "pvrm trust same.pem" 'Trust this signer instead? [y/N]' y
    assert_status 0
    assert_same_certificate "$(signer_in_store)" same.pem
}

@test "two subjects with the same hash can't both be trusted, and neither is replaced" {
    assert_equal "$(place_of alike.pem)" "$(signer_in_store)"
    pvrm trust --yes "$signer_cert"
    before=$(store_listing)
    run pvrm trust --yes --replace alike.pem
    assert_status 1
    assert_line "pvrm: cannot trust this signer: $(signer_in_store) holds the certificate of /O=Test/CN=Builder, and the store can't hold both; use another subject, or remove that one with: pvrm distrust $(fingerprint_of "$signer_cert")"
    assert_equal "$(store_listing)" "$before"
}

@test "a file without a certificate in the place of one is replaced when that is asked for" {
    echo junk >"$(signer_in_store)"
    run pvrm trust --yes "$signer_cert"
    assert_status 1
    assert_line "pvrm: $(signer_in_store) holds no certificate in PEM form; trusting this signer replaces it"
    assert_equal "$(cat "$(signer_in_store)")" junk
    pvrm trust --yes --replace "$signer_cert"
    assert_same_certificate "$(signer_in_store)" "$signer_cert"
}

# The order of the calls that make a change last, by a library loaded ahead of the C library.
with_noted_calls() { # COMMAND [ARGUMENT]...
    g++ -std=c++20 -shared -fPIC -o note_calls.so \
        "$source_dir/tests/system/backends/note_calls.cpp" -ldl
    NOTE_CALLS=$PWD/calls LD_PRELOAD=$PWD/note_calls.so ASAN_OPTIONS=verify_asan_link_order=0 "$@"
}

@test "a certificate is on the disk before it has its name, and the name afterwards" {
    local place
    place=$(signer_in_store)
    with_noted_calls pvrm trust --yes "$signer_cert"
    assert_equal "$(grep -F certstore calls)" "fsync $place.new
rename $place.new $place
fsync $repository/certstore"
    rm calls
    with_noted_calls pvrm distrust --yes /O=Test/CN=Builder
    assert_equal "$(grep -F certstore calls)" "unlink $place
fsync $repository/certstore"
}

@test "a full disk leaves the certificate that was trusted" {
    pvrm trust --yes "$signer_cert"
    mkdir small
    mount -t tmpfs -o size=8k small small
    cp "$(signer_in_store)" small/
    head -c 100000 /dev/zero >small/full || true
    mount --bind small "$repository/certstore"
    before=$(openssl x509 -in "$(signer_in_store)")
    run pvrm trust --yes --replace same.pem
    assert_status 1
    assert_line "pvrm: cannot write $(signer_in_store): No space left on device"
    assert_equal "$(openssl x509 -in "$(signer_in_store)")" "$before"
    [[ ! -e $(signer_in_store).new ]]
    umount "$repository/certstore" small
}

# --- trust --list ---------------------------------------------------------------------------------

@test "trust --list shows who is trusted, to everybody" {
    run pvrm trust --list
    assert_status 0
    assert_equal "$output" 'pvrm: nobody is trusted'
    pvrm trust --yes "$signer_cert"
    pvrm trust --yes other.pem
    run --separate-stderr as_nobody pvrm trust --list
    assert_status 0
    assert_equal "$stderr" ''
    assert_equal "$(grep -c '^Subject: ' <<<"$output")" 2
    for file in "$signer_cert" other.pem; do
        assert_line "SHA-256:      $(fingerprint_of "$file")"
    done
    assert_line 'Subject:      /O=Test/CN=Builder'
    assert_line 'Subject:      /O=Other/CN=Builder'
    refute_output_has '(expired)'
}

@test "trust --list marks what is expired and what is not valid yet" {
    make_dated_certificate old /CN=Old 20010101000000Z 20020101000000Z
    make_dated_certificate new /CN=New 20480101000000Z 20490101000000Z
    run pvrm trust --yes old.pem
    assert_status 0
    assert_line 'Valid until:  2002-01-01 00:00:00 (expired)'
    pvrm trust --yes new.pem
    TZ=UTC run pvrm trust --list
    assert_status 0
    assert_line 'Valid until:  2002-01-01 00:00:00 (expired)'
    assert_line 'Valid from:   2048-01-01 00:00:00 (not valid yet)'
    assert_line 'Valid from:   2001-01-01 00:00:00'
    assert_line 'Valid until:  2049-01-01 00:00:00'
}

@test "trust --list reports files that the verification never finds" {
    pvrm trust --yes "$signer_cert"
    cp other.pem "$repository/certstore/wrong.crt"
    echo junk >"$repository/certstore/00000000.crt"
    run --separate-stderr pvrm trust --list
    assert_status 1
    assert_equal "$stderr" "pvrm: $repository/certstore/00000000.crt holds no certificate in PEM form
pvrm: $repository/certstore/wrong.crt has the wrong name: the certificate of /O=Other/CN=Builder is looked for in $(basename "$(place_of other.pem)") only"
    assert_equal "$(grep '^Subject: ' <<<"$output")" 'Subject:      /O=Test/CN=Builder'
}

@test "trust --list warns of a certificate that would not be trusted today" {
    make_certificate short rsa:1024 /CN=Short
    cp short.pem "$(place_of short.pem)"
    run pvrm trust --list
    assert_status 0
    assert_line 'Subject:      /CN=Short'
    assert_line "pvrm: warning: $(place_of short.pem) should not be trusted: its RSA key has 1024 bits, and at least 2048 are needed; make a new key and certificate"
}

# --- distrust -------------------------------------------------------------------------------------

@test "distrust removes a signer by its subject or fingerprint" {
    local fingerprint name
    fingerprint=$(fingerprint_of other.pem)
    for name in /O=Other/CN=Builder "$fingerprint" "${fingerprint:0:11}" "${fingerprint//:/}" \
        "$(tr '[:upper:]' '[:lower:]' <<<"${fingerprint:0:20}")"; do
        pvrm trust --yes "$signer_cert"
        pvrm trust --yes other.pem
        run pvrm distrust --yes "$name"
        assert_status 0
        assert_line 'Subject:      /O=Other/CN=Builder'
        assert_line "SHA-256:      $fingerprint"
        assert_line "pvrm: removed $(place_of other.pem)"
        assert_equal "$(ls "$repository/certstore")" "$(basename "$(signer_in_store)")"
    done
    pvrm distrust --yes /O=Test/CN=Builder
    run pvrm install "$(package foo)"
    assert_status 1
    refute_installed foo
}

@test "distrust removes every copy of the certificate" {
    pvrm trust --yes other.pem
    cp other.pem "$repository/certstore/copy.crt"
    run pvrm distrust --yes /O=Other/CN=Builder
    assert_status 0
    assert_line "pvrm: removed $repository/certstore/copy.crt"
    assert_equal "$(store_listing)" ''
}

@test "distrust refuses what means no certificate, or several" {
    local fingerprint
    pvrm trust --yes "$signer_cert"
    cp same.pem "$repository/certstore/same.crt"
    before=$(store_listing)
    fingerprint=$(fingerprint_of "$signer_cert")
    for name in /O=Nobody 00000000 "${fingerprint:0:8}" "${fingerprint:0:1}" /O=test/CN=builder '' \
        "$(signer_in_store)"; do
        run pvrm distrust --yes "$name"
        assert_status 1
        assert_equal "$output" "pvrm: $name is neither the subject of a trusted certificate nor 8 or more digits of the SHA-256 of one; pvrm trust --list shows them"
    done
    run pvrm distrust --yes /O=Test/CN=Builder
    assert_status 1
    assert_equal "$output" 'pvrm: /O=Test/CN=Builder means several certificates; give more of the SHA-256 of one of them'
    assert_equal "$(store_listing)" "$before"
}

@test "distrust asks on a terminal, and needs --yes without one" {
    pvrm trust --yes "$signer_cert"
    before=$(store_listing)
    run pvrm distrust /O=Test/CN=Builder
    assert_status 2
    assert_line 'pvrm: nothing was changed: without a terminal to ask on, pvrm distrust needs --yes'
    local question='Trust packages of this signer no more? [Y/n]'
    answer_on_terminal 'pvrm distrust /O=Test/CN=Builder' "$question" n
    assert_status 1
    run pvrm distrust --dry-run /O=Test/CN=Builder
    assert_status 0
    assert_line "pvrm: would remove $(signer_in_store)"
    assert_equal "$(store_listing)" "$before"
    answer_on_terminal 'pvrm distrust /O=Test/CN=Builder' "$question" y
    assert_status 0
    assert_equal "$(store_listing)" ''
}

@test "trust and distrust change nothing without the lock and without root" {
    pvrm trust --yes "$signer_cert"
    before=$(store_listing)
    start_pvrm install "$(package foo "init/00-add.sh=$waiting_script")"
    for arguments in 'trust --yes other.pem' 'distrust --yes /O=Test/CN=Builder'; do
        # shellcheck disable=SC2086
        run as_nobody env PATH=/usr/sbin pvrm $arguments
        assert_status 3
        # shellcheck disable=SC2086
        run pvrm $arguments
        assert_status 4
    done
    finish
    assert_status 0
    assert_equal "$(store_listing)" "$before"
}

# --- Keys that are too short ----------------------------------------------------------------------

@test "a package signed with an RSA key under 1024 bits is not verified" {
    make_certificate short rsa:1016 /CN=Short
    cp short.pem "$(place_of short.pem)"
    # The tool that packs refuses such a key, so the signature is exchanged.
    payload_of "$(package foo)" >payload
    {
        head_of "$(package foo)" | sed '/^evrkRsaSig/,$d'
        echo "evrkRsaSigSubj: /CN=Short"
        signature_of payload short.key
    } >description
    join_package description payload foo.vrk
    run pvrm install ./foo.vrk
    assert_status 1
    assert_output_has 'the RSA key of its signer has 1016 bits, and a signature by fewer than 1024 proves nothing'
    refute_installed foo
    run vrk-build show foo.vrk --cert short.pem
    assert_status 1
    assert_line "Signature:     invalid: the signer's RSA key is too short"
}
