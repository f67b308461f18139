#!/usr/bin/env bats
# Packages that nobody signed, or somebody who may not, and stores of certificates that are odd.

load ../helpers
load hostile

setup_file() {
    set_up_attacks
    make_key stranger /O=Strangers/CN=Somebody 2048
    make_key impostor /O=Test/CN=Builder 2048
    make_key lowercase /O=test/CN=builder 2048
    make_key weak /O=Test/CN=Weak 512
    make_key short /O=Test/CN=Short 1024
    make_key busy /O=Test/CN=Busy 2048 -addext keyUsage=critical,keyEncipherment
    make_open_key open /O=Test/CN=Open
    make_dated_key expired /O=Test/CN=Expired 20200101000000Z 20210101000000Z
    make_dated_key early /O=Test/CN=Early 20480101000000Z 20490101000000Z
    openssl req -x509 -newkey ec -pkeyopt ec_paramgen_curve:prime256v1 -nodes -subj /CN=Curve \
        -keyout "$keys/curve.key" -out "$keys/curve.pem" 2>"$keys/openssl.log"
}

# A package by this signer is refused for this reason.
assert_untrusted() { # REASON...
    attack pvrm -y install "$vrk"
    assert_repelled "$vrk can't be installed" "$@"
    refute_installed foo
}

@test "a package without a signature" {
    begin foo 1.0
    : >"$work/signature"
    seal
    assert_untrusted 'it is not signed'
}

@test "a signer without a signature" {
    begin foo 1.0
    printf 'evrkRsaSigSubj: /O=Test/CN=Builder\n' >"$work/signature"
    seal
    assert_untrusted 'it is not signed'
}

@test "a signature without a signer" {
    begin foo 1.0
    archive | gzip -n >"$work/payload"
    signature | sed 1d >"$work/signature"
    seal
    assert_untrusted 'it is not signed'
}

@test "an empty signature" {
    begin foo 1.0
    printf 'evrkRsaSigSubj: /O=Test/CN=Builder\nevrkRsaSigData:: \n' >"$work/signature"
    seal
    assert_untrusted 'not'
}

@test "a signature of one byte" {
    begin foo 1.0
    printf 'evrkRsaSigSubj: /O=Test/CN=Builder\nevrkRsaSigData:: AA==\n' >"$work/signature"
    seal
    assert_untrusted 'signature does not fit'
}

@test "a signature of 60,000 bytes" {
    begin foo 1.0
    printf 'evrkRsaSigSubj: /O=Test/CN=Builder\nevrkRsaSigData:: %s\n' \
        "$(head -c 60000 /dev/zero | base64 -w 0)" >"$work/signature"
    seal
    assert_untrusted 'signature does not fit'
}

@test "a signature of another payload" {
    begin bar 1.0
    seal
    stolen=$work/signature
    begin foo 1.0
    cp "$stolen" "$work/signature"
    seal
    assert_untrusted 'signature does not fit'
}

@test "a signed payload with one byte more" {
    begin foo 1.0
    seal
    printf x >>"$vrk"
    assert_untrusted 'signature does not fit'
}

@test "a signed payload that is cut short" {
    begin foo 1.0
    seal
    truncate -s -8 "$vrk"
    assert_untrusted 'signature does not fit'
}

@test "a signature of the payload by another digest" {
    begin foo 1.0
    archive | gzip -n >"$work/payload"
    {
        printf 'evrkRsaSigSubj: /O=Test/CN=Builder\n'
        printf 'evrkRsaSigData:: %s\n' \
            "$(openssl dgst -md5 -sign "$keys/builder.key" "$work/payload" | base64 -w 0)"
    } >"$work/signature"
    seal
    assert_untrusted 'signature does not fit'
}

@test "the key of somebody unknown" {
    begin foo 1.0
    seal stranger
    assert_untrusted 'its signer is not trusted here'
}

@test "another key under the name of a trusted signer" {
    begin foo 1.0
    seal impostor
    assert_untrusted 'signature does not fit'
}

@test "the name of a trusted signer in other letters" {
    assert_equal "$(openssl x509 -noout -hash -in "$keys/lowercase.pem")" \
        "$(openssl x509 -noout -hash -in "$keys/builder.pem")"
    begin foo 1.0
    seal lowercase
    assert_untrusted 'its signer is not the one that the stored certificate names'
}

# A package by the trusted key, whose head names its signer so.
assert_subject_refused() { # SUBJECT REASON
    begin foo 1.0
    archive | gzip -n >"$work/payload"
    signature >"$work/signature"
    { printf 'evrkRsaSigSubj: %s\n' "$1"; sed 1d "$work/signature"; } >"$work/spelled"
    mv "$work/spelled" "$work/signature"
    seal
    assert_untrusted "$2"
}

@test "the parts of a trusted signer's name in another order" {
    assert_subject_refused /CN=Builder/O=Test 'its signer is not trusted here'
}

@test "a trusted signer's name with a part more" {
    assert_subject_refused /O=Test/CN=Builder/CN=x 'its signer is not trusted here'
}

@test "a trusted signer's name with a blank more" {
    assert_subject_refused '/O=Test/CN=Builder  ' 'its signer'
}

@test "a signer's name that ends in an escape" {
    assert_subject_refused "/O=Test/CN=Builder\\" 'its signer'
}

@test "a signer's name that is a path" {
    assert_subject_refused '/../../../../srv/victim/file' 'its signer'
}

@test "a signer's name of 20,000 letters" {
    assert_subject_refused "/CN=$(printf 'a%.0s' {1..20000})" 'its signer'
}

@test "a certificate that has expired" {
    store expired
    begin foo 1.0
    seal expired
    assert_untrusted 'certificate has expired'
}

@test "a certificate that is not valid yet" {
    store early
    begin foo 1.0
    seal early
    assert_untrusted 'certificate is not valid yet'
}

@test "a key of 512 bits, also when its certificate is in the store" {
    store weak
    begin foo 1.0
    seal weak
    assert_untrusted 512
}

@test "a signature that nobody's key made, for a key with the exponent 1 in the store" {
    store open
    begin foo 1.0
    archive | gzip -n >"$work/payload"
    {
        printf 'evrkRsaSigSubj: %s\n' "$(<"$keys/open.subject")"
        printf 'evrkRsaSigData:: %s\n' "$(padded_digest | base64 -w 0)"
    } >"$work/signature"
    # It fits: only the key is wrong.
    padded_digest >"$work/raw"
    openssl dgst -sha1 -verify "$keys/open.pub" -signature "$work/raw" "$work/payload"
    seal
    assert_untrusted 'not sound'
    run vrk-build show "$vrk" --cert "$keys/open.pem"
    assert_status 1
    assert_line "Signature:     invalid: the signer's RSA key is not sound"
}

# --- The store ------------------------------------------------------------------------------------

# Where the store keeps the certificate of a signer that it does not know.
stranger_in_store() {
    echo "$repository/certstore/$(openssl x509 -noout -hash -in "$keys/stranger.pem").crt"
}

@test "a certificate that is rubbish" {
    head -c 3000 /dev/zero >"$(stranger_in_store)"
    begin foo 1.0
    seal stranger
    assert_untrusted 'holds no certificate that can be read'
    rm "$(stranger_in_store)"
}

@test "a certificate that is another signer's" {
    cp "$keys/builder.pem" "$(stranger_in_store)"
    begin foo 1.0
    seal stranger
    assert_untrusted 'its signer is not the one that the stored certificate names'
    rm "$(stranger_in_store)"
}

@test "a certificate that is a pipe holds nothing up" {
    mkfifo "$(stranger_in_store)"
    begin foo 1.0
    seal stranger
    assert_untrusted 'its signer'
    rm "$(stranger_in_store)"
}

@test "a certificate that is an endless device holds nothing up" {
    ln -s /dev/zero "$(stranger_in_store)"
    begin foo 1.0
    seal stranger
    assert_untrusted 'its signer'
    rm "$(stranger_in_store)"
}

@test "a certificate that is a directory" {
    mkdir "$(stranger_in_store)"
    begin foo 1.0
    seal stranger
    assert_untrusted 'its signer'
    rmdir "$(stranger_in_store)"
}

# --- Certificates to trust ------------------------------------------------------------------------

assert_not_trusted() { # NAME WORD...
    attack pvrm --yes trust "$keys/$1.pem"
    assert_repelled "${@:2}"
}

@test "a key of 1,024 bits is not trusted" {
    assert_not_trusted short 1024 2048
}

@test "a key with the exponent 1 is not trusted" {
    assert_not_trusted open 'not sound'
}

@test "a key of another type is not trusted" {
    assert_not_trusted curve RSA
}

@test "a certificate that may not sign is not trusted" {
    assert_not_trusted busy sign
}

@test "without a terminal nobody is trusted by default" {
    attack pvrm trust "$keys/stranger.pem"
    assert_repelled --yes
}

@test "another certificate of a trusted subject does not replace the first" {
    attack pvrm trust "$keys/impostor.pem"
    assert_repelled 'another certificate'
}

@test "a file that is not a certificate is not trusted" {
    cp /etc/passwd "$keys/text.pem"
    assert_not_trusted text 'holds no certificate'
}

@test "a pipe is not trusted, and holds nothing up" {
    mkfifo "$keys/pipe.pem"
    assert_not_trusted pipe 'not a regular file'
}
