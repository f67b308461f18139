#!/usr/bin/env bats
# The keys and certificates that vrk-build makes and takes.

bats_require_minimum_version 1.5.0
load helpers
load vrk_build

@test "keygen makes a key of 3072 bits that only its owner reads, and its certificate" {
    assert_equal "$(stat -c %a "$keys/key") $(stat -c %a "$keys/cert")" "600 644"
    assert_equal "$(openssl pkey -in "$keys/key" -noout -text | head -n 1)" \
        "$(openssl rsa -in "$keys/key" -noout -text | head -n 1)"
    openssl rsa -in "$keys/key" -noout -text | grep -q 'Private-Key: (3072 bit'
    assert_equal "$(openssl x509 -in "$keys/cert" -noout -subject -nameopt compat)" \
        "subject=/O=My Distribution/CN=Jane"
    assert_equal "$(openssl x509 -in "$keys/cert" -noout -pubkey)" \
        "$(openssl pkey -in "$keys/key" -pubout)"
    openssl verify -CAfile "$keys/cert" "$keys/cert"
    openssl x509 -in "$keys/cert" -noout -checkend $((3649 * 86400))
    run ! openssl x509 -in "$keys/cert" -noout -checkend $((3651 * 86400))
}

# refuse_subject SUBJECT
refuse_subject() {
    run vrk-build keygen "$1" --key k --cert c
    assert_status 1
    [[ $output == "vrk-build: "*"$1"* ]] || { echo "$output"; return 1; }
    assert_equal "${#lines[@]}" 1
    [[ ! -e k && ! -e c ]]
}

@test "keygen refuses subjects that would not come back from a package" {
    local subject
    for subject in '' Jane '/' 'O=x' '/O=' '/O' '/Colour=red/O=x' '/O=a+b' '/O=a\/b' '/O=a\\b' \
        '/O=Ä' '/o=x' '/2.5.4.10=x' '/O=x/' '/C=German' '/organizationName=x'; do
        refuse_subject "$subject"
    done
}

@test "keygen takes subjects of several attributes, and packages bear them" {
    local hash
    vrk-build keygen '/C=DE/ST=x y/L=a, b/O=a=b/OU=#1/CN=x "y" <z>;' --key k --cert c --days 1
    run vrk-build pack tree --key k --cert c
    assert_status 0
    take_apart foo_any_1.2.vrk
    assert_equal "$(attribute evrkRsaSigSubj)" '/C=DE/ST=x y/L=a, b/O=a=b/OU=#1/CN=x "y" <z>;'
    hash=$(openssl x509 -in c -noout -subject_hash)
    mkdir store
    cp c "store/$hash.crt"
    run vrk-build show foo_any_1.2.vrk --store store
    assert_status 0
}

@test "keygen overwrites nothing and leaves nothing behind" {
    echo mine >k
    run vrk-build keygen /O=x --key k --cert c
    assert_status 1
    assert_equal "$output" "vrk-build: k exists already and is not overwritten; choose another name"
    assert_equal "$(cat k)" mine
    run vrk-build keygen /O=x --key k2 --cert nowhere/c
    assert_status 1
    assert_equal "$output" "vrk-build: nowhere/c can't be written: No such file or directory"
    [[ ! -e k2 ]]
    run vrk-build keygen /O=x --key k2 --cert k2
    assert_status 1
    [[ ! -e k2 ]]
    run vrk-build keygen /O=x --key k2 --cert c --days 36000
    assert_status 1
    assert_equal "$output" "vrk-build: a certificate must be valid for at least a day and end before 2050"
}

# sign_with KEY CERT
sign_with() {
    run vrk-build pack tree --key "$1" --cert "$2" </dev/null
}

@test "keys and certificates that can't sign are refused" {
    openssl req -x509 -newkey rsa:2048 -nodes -subj /O=Other -keyout other.key -out other.cert 2>log
    sign_with "$keys/key" other.cert
    assert_refused "the certificate other.cert does not belong to the key $keys/key"
    openssl req -x509 -newkey ec -pkeyopt ec_paramgen_curve:P-256 -nodes -subj /O=E -keyout ec.key \
        -out ec.cert 2>log
    sign_with ec.key ec.cert
    assert_refused "ec.key is not an RSA key, and packages are signed with RSA"
    sign_with other.cert other.cert
    assert_status 1
    [[ $output == "vrk-build: other.cert holds no private key in PEM form that can be read"* ]]
    sign_with other.key other.key
    assert_status 1
    [[ $output == "vrk-build: other.key holds no certificate in PEM form"* ]]
    sign_with "$keys/key" nowhere
    assert_refused "cannot open nowhere: No such file or directory"
    sign_with nowhere other.cert
    assert_refused "nowhere: No such file or directory"
    assert_no_leftovers
}

@test "a short key and a certificate that is not for signatures are refused, as pvrm trust would" {
    openssl req -x509 -newkey rsa:2040 -nodes -subj /O=Short -keyout short.key -out short.cert 2>log
    sign_with short.key short.cert
    assert_refused "short.cert can't sign packages: its RSA key has 2040 bits, and at least 2048 are needed; make a new key and certificate"
    openssl req -x509 -new -key "$keys/key" -subj /O=Authority -addext keyUsage=keyCertSign -out ca
    sign_with "$keys/key" ca
    assert_refused "ca can't sign packages: it may not sign, as its key usage lacks digitalSignature; use a certificate for signatures"
    assert_no_leftovers
}

@test "the passphrase of a key is not asked for without a terminal" {
    openssl pkey -in "$keys/key" -aes128 -passout pass:secret -out locked
    run timeout 60 setsid vrk-build pack tree --key locked --cert "$keys/cert" </dev/null
    assert_refused "locked is encrypted, and its passphrase is only asked for on a terminal; call vrk-build from one, or decrypt the key with openssl pkey"
}

@test "a certificate that would not be found or counts as expired is refused" {
    local subject
    openssl req -x509 -new -key "$keys/key" -days 20000 -subj /O=x -out late
    sign_with "$keys/key" late
    assert_refused "late can't sign packages: its dates pass the year 2049, which counts as expired; use one that ends earlier"
    for subject in '/O=a\+b' '/O=a\/b'; do
        openssl req -x509 -new -key "$keys/key" -subj "$subject" -out odd
        sign_with "$keys/key" odd
        assert_status 1
        [[ $output == "vrk-build: odd can't sign packages: "* ]]
        assert_no_leftovers
    done
    openssl req -x509 -new -key "$keys/key" -multivalue-rdn -subj '/O=a+OU=b' -out odd
    sign_with "$keys/key" odd
    assert_status 1
    [[ $output == "vrk-build: odd can't sign packages: "* ]]
}

@test "an expired certificate is a warning, and one of tomorrow too" {
    printf '[ca]\ndefault_ca=a\n[a]\ndatabase=index\nnew_certs_dir=.\nrand_serial=yes\ndefault_md=sha256\npolicy=p\n[p]\norganizationName=optional\n[req]\ndistinguished_name=n\n[n]\n' >cnf
    touch index
    openssl req -new -config cnf -key "$keys/key" -subj /O=x -out request
    sign() { # CERTIFICATE START END
        openssl ca -selfsign -preserveDN -batch -notext -config cnf -keyfile "$keys/key" \
            -in request -out "$1" -startdate "$2" -enddate "$3" 2>log
        : >index
    }
    sign old 20010101000000Z 20020101000000Z
    sign new 20480101000000Z 20490101000000Z
    sign_with "$keys/key" old
    assert_status 0
    assert_line "vrk-build: the certificate old has expired: the package will not be installed with it"
    run vrk-build show foo_any_1.2.vrk --cert old
    assert_status 1
    assert_line "Signature:     not trusted: the signer's certificate has expired"
    sign_with "$keys/key" new
    assert_status 0
    assert_line "vrk-build: the certificate new is not valid yet: until then the package will not be installed with it"
    run vrk-build show foo_any_1.2.vrk --cert new
    assert_status 1
    assert_line "Signature:     not trusted: the signer's certificate is not valid yet"
}
