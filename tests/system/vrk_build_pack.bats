#!/usr/bin/env bats
# What vrk-build packs, taken apart by the standard tools and not by our readers.

bats_require_minimum_version 1.5.0
load helpers
load vrk_build

@test "a package is a magic, a size of five digits, a description and a payload" {
    run pack
    assert_status 0
    assert_equal "$output" foo_any_1.2.vrk
    assert_equal "$(head -c 6 foo_any_1.2.vrk)" EVRM20
    [[ $(head -c 11 foo_any_1.2.vrk | tail -c 5) =~ ^[0-9]{5}$ ]]
    take_apart foo_any_1.2.vrk
    assert_equal "$(head -n 6 apart/description)" "evrmVersion: 2.0
evrkName: foo
evrkVersion: 1.2
evrkArchitecture: any
evrkDescription: A thing
evrkDataSize: $(cat tree/{data/usr/bin/foo,conf/etc/foo.conf,dump/note,init/99-add.sh} | wc -c)"
    assert_equal "$(attribute evrkRsaSigSubj)" "/O=My Distribution/CN=Jane"
}

@test "the signature covers the payload and holds by the certificate" {
    pack
    take_apart foo_any_1.2.vrk
    encoded_attribute evrkRsaSigData >signature
    openssl x509 -in "$keys/cert" -noout -pubkey >public
    run openssl dgst -sha1 -verify public -signature signature apart/payload
    assert_equal "$output" "Verified OK"
    printf x >>apart/payload
    run ! openssl dgst -sha1 -verify public -signature signature apart/payload
}

@test "the payload is a compressed archive of sorted members without traces of the machine" {
    pack
    take_apart foo_any_1.2.vrk
    assert_equal "$(gzip -dc apart/payload | cpio -it --quiet)" "conf/etc/foo.conf
data/usr/bin/foo
dump/note
hash/conf.txt
hash/data.txt
hash/dump.txt
hash/info.txt
hash/init.txt
info/desc.txt
info/perm.txt
init/99-add.sh"
    # Mode, links, owner, size, date; the date is the epoch.
    TZ=UTC run cpio -itv --numeric-uid-gid --quiet < <(gzip -dc apart/payload)
    assert_equal "$(awk '{ print $1, $2, $3, $4, $6, $7, $8, $9 }' <<<"$output" | sed -n 1,2p)" \
        "-rw-r--r-- 1 0 0 Jan 1 1970 conf/etc/foo.conf
-rwxr-xr-x 1 0 0 Jan 1 1970 data/usr/bin/foo"
    assert_equal "$(head -c 6 < <(gzip -dc apart/payload))" 070701
    # Neither a time nor a name in the header of gzip.
    assert_equal "$(head -c 8 apart/payload | od -An -tx1 | tr -d ' ')" 1f8b080000000000
}

@test "the hash lists fit the files, and the description lies in the info fork" {
    local fork
    pack
    take_apart foo_any_1.2.vrk
    for fork in data conf dump init info; do
        sed 's/:/  /' "apart/tree/hash/$fork.txt" >sums
        (cd "apart/tree/$fork" && sha1sum --quiet -c ../../../sums)
        assert_equal "$(cut -c 42- "apart/tree/hash/$fork.txt")" \
            "$(cd "apart/tree/$fork" && find . -type f -printf '%P\n' | LC_ALL=C sort)"
    done
    diff -r tree/data apart/tree/data
    assert_equal "$(grep -v '^ \|^evrkRsaSig' apart/description)" "$(cat apart/tree/info/desc.txt)"
    run ! grep -q evrkRsaSig apart/tree/info/desc.txt
}

@test "the same tree and key give the same bytes, whatever the umask, the times and the order" {
    mkdir tree/dump/many
    for i in {1..50}; do echo "$i" >"tree/dump/many/$i"; done
    pack -o first.vrk
    mkdir again
    cp -r tree again/
    rm -r again/tree/dump/many
    mkdir again/tree/dump/many
    for i in {50..1}; do echo "$i" >"again/tree/dump/many/$i"; done
    find again -exec touch -d 2001-01-01 {} +
    chmod -R go-rwx again
    (
        umask 077
        tree=again/tree LC_ALL=C.UTF-8 TZ=Asia/Tokyo pack -o second.vrk
    )
    cmp first.vrk second.vrk
    assert_equal "$(stat -c %a first.vrk) $(stat -c %a second.vrk)" "644 600"
}

@test "a package has all attributes that its source gives" {
    cat >>tree/package.ldif <<'TREE'
evrkVariant: big
evrkCreator: Jane
# a comment

evrkDependency: one
EVRKDEPENDENCY: two
TREE
    run pack
    assert_status 0
    assert_equal "$output" foo_big_any_1.2.vrk
    take_apart "$output"
    assert_equal "$(sed -n 2,9p apart/description)" "evrkName: foo
evrkVariant: big
evrkVersion: 1.2
evrkArchitecture: any
evrkCreator: Jane
evrkDescription: A thing
evrkDependency: one
evrkDependency: two"
}

@test "package.ldif may have other line ends, folded lines and values in base64" {
    local text='Zwei Zeilen:
Äpfel und Öl'
    printf '\xef\xbb\xbfevrkName: fo\r\n o\r\nevrkVersion: 1.2\r\nevrkArchitecture: any\r\n' \
        >tree/package.ldif
    printf 'evrkDescription:: %s' "$(printf %s "$text" | base64 -w 20 | sed '2,$s/^/ /')" \
        >>tree/package.ldif
    pack
    take_apart foo_any_1.2.vrk
    assert_equal "$(attribute evrkName)" foo
    assert_equal "$(encoded_attribute evrkDescription)" "$text"
}

@test "a description of every length comes whole" {
    local length
    for length in 60 61 76 77 134 135 136 137 138 153 212 213 1000; do
        printf 'evrkName: foo\nevrkVersion: 1\nevrkArchitecture: any\nevrkDescription: %s\n' \
            "$(printf "%${length}s" '' | tr ' ' x)" >tree/package.ldif
        pack -o it.vrk
        take_apart it.vrk
        run ! grep -qP '\x00' apart/description
        assert_equal "$(attribute evrkDescription | tr -d '\n' | wc -c)" "$length"
        assert_equal "$(attribute evrkRsaSigSubj)" "/O=My Distribution/CN=Jane"
    done
}

@test "only the folders of a package stand in a tree" {
    touch tree/README
    run pack
    assert_refused "tree/README does not belong into a source tree: beside package.ldif it holds only the folders data, conf, dump, init and info"
    rm tree/README
    mv tree/dump real
    ln -s ../real tree/dump
    run pack
    assert_refused "tree/dump does not belong into a source tree: beside package.ldif it holds only the folders data, conf, dump, init and info"
}

@test "hidden, foreign and hard linked names are packed as they are" {
    echo hidden >tree/dump/.hidden
    echo umlaut >tree/dump/Äpfel
    echo latin >"tree/dump/"$'\xc4'"pfel"
    echo blanks >"tree/dump/ a b "
    # shellcheck disable=SC2016
    echo odd >'tree/dump/a|b:c\d"e$f'
    ln tree/dump/note tree/dump/twin
    mkdir tree/dump/-r
    echo dash >tree/dump/-r/--help
    pack
    take_apart foo_any_1.2.vrk
    diff -r tree/dump apart/tree/dump
    assert_equal "$(stat -c %h apart/tree/dump/twin)" 1
    assert_equal "$(gzip -dc apart/payload | cpio -it --quiet | grep -c ^dump/)" 8
}

@test "an empty package, and empty folders, are no failure" {
    rm -r tree/*/
    mkdir -p tree/data/var/empty
    run pack
    assert_status 0
    assert_line "vrk-build: data/var/empty is an empty directory and is not packed"
    take_apart foo_any_1.2.vrk
    assert_equal "$(gzip -dc apart/payload | cpio -it --quiet)" "hash/info.txt
info/desc.txt"
    assert_equal "$(attribute evrkDataSize)" 0
}

@test "what is probably not meant is remarked, and packed" {
    touch tree/init/00-ad.sh
    echo x >tree/data/usr/bin/other
    chmod 4711 tree/data/usr/bin/foo tree/data/usr/bin/other
    run pack
    assert_status 0
    assert_equal "$output" "vrk-build: init/00-ad.sh is kept, but is none of the scripts that are run
vrk-build: data/usr/bin/other loses its special mode bits; give them in info/perm.txt, as path|mode
foo_any_1.2.vrk"
}

@test "the output goes to a directory, to a name, and over an older package" {
    mkdir out dir.vrk
    assert_equal "$(pack -o out)" out/foo_any_1.2.vrk
    assert_equal "$(pack --output out/other.vrk)" out/other.vrk
    assert_equal "$(pack -o dir.vrk)" dir.vrk/foo_any_1.2.vrk
    echo old >out/other.vrk
    ln out/other.vrk keep
    pack -o out/other.vrk
    cmp out/other.vrk out/foo_any_1.2.vrk
    assert_equal "$(cat keep)" old
    assert_equal "$(ls -A out)" "foo_any_1.2.vrk
other.vrk"
}

@test "nothing is left of a package that could not be written" {
    head -c 300000 /dev/urandom >tree/dump/noise
    run bash -c 'ulimit -f 100; vrk-build pack tree --key "$keys/key" --cert "$keys/cert"'
    assert_refused "foo_any_1.2.vrk can't be written: File too large"
    mkdir full
    mount -t tmpfs -o size=64k tmpfs full
    run pack -o full
    assert_equal "$(ls -A full)" ""
    umount full
    assert_refused "full/foo_any_1.2.vrk can't be written: No space left on device"
}

@test "nothing is left when a signal ends it" {
    local child signal
    head -c 40000000 /dev/urandom >tree/dump/noise
    for signal in TERM INT HUP; do
        mkdir out
        # It must not be done before this shell gets to run again.
        nice -n 19 env --default-signal=INT,HUP \
            vrk-build pack tree --key "$keys/key" --cert "$keys/cert" -o out 3>&- &
        child=$!
        until [[ -n $(ls -A out) ]]; do
            kill -0 "$child"
            sleep 0.01
        done
        [[ $(ls -A out) == .vrk-build-* ]]
        kill -"$signal" "$child"
        wait_for "$child"
        assert_status $((128 + $(kill -l "$signal")))
        assert_equal "$(ls -A out)" ""
        rmdir out
    done
}

@test "a file that changes while it is packed is noticed" {
    local child
    head -c 60000000 /dev/urandom >tree/dump/noise
    echo before >tree/init/99-del.sh
    mkdir out
    nice -n 19 vrk-build pack tree --key "$keys/key" --cert "$keys/cert" -o out >told 2>&1 3>&- &
    child=$!
    # The output grows from the second reading on, and this file comes behind the large one.
    until [[ $(stat -c %s out/.vrk-build-* 2>error) -gt 10000 ]]; do
        kill -0 "$child"
        sleep 0.01
    done
    echo behind >tree/init/99-del.sh
    wait_for "$child"
    assert_status 1
    assert_equal "$(cat told)" "vrk-build: tree/init/99-del.sh changed while it was packed"
    assert_equal "$(ls -A out)" ""
}

@test "a file that can't be read is told with the reason" {
    local open_dir
    chmod 000 tree/dump/note
    # The directories of the test are closed to others.
    open_dir=$(mktemp -d /tmp/vrk-build-test-XXXXXX)
    cp -r tree "$keys/key" "$keys/cert" "$open_dir"
    cd "$open_dir"
    chmod 777 .
    chmod 644 key
    chmod 000 tree/dump/note
    run setpriv --reuid 65534 --regid 65534 --clear-groups \
        vrk-build pack tree --key key --cert cert
    assert_refused "tree/dump/note: Permission denied"
}

@test "a package is installed by the tool that it is made for" {
    has_words=$(pvrm --help)
    grep -q '^  install ' <<<"$has_words"
    pack
    pvrm trust --yes "$keys/cert"
    run pvrm -y install ./foo_any_1.2.vrk
    assert_status 0
    assert_equal "$(/usr/bin/foo)" foo
    assert_equal "$(stat -c %a /usr/bin/foo)" 4755
    assert_equal "$(cat /etc/foo.conf)" "a = 1"
}
