#!/usr/bin/env bats
# What vrk-build refuses to pack.

bats_require_minimum_version 1.5.0
load helpers
load vrk_build

@test "the largest description fits, and one byte more is refused" {
    local base size low=90000 high=99999 middle
    base=$(grep -v evrkDescription tree/package.ldif)
    while ((low < high)); do
        middle=$(((low + high + 1) / 2))
        printf '%s\nevrkDescription: %s\n' "$base" "$(printf "%${middle}s" '' | tr ' ' x)" \
            >tree/package.ldif
        if pack -o it.vrk 2>error; then low=$middle; else high=$((middle - 1)); fi
    done
    size=$(head_size it.vrk)
    ((size >= 99998))
    rm it.vrk
    printf '%s\nevrkDescription: %s\n' "$base" "$(printf "%99999s" '' | tr ' ' x)" >tree/package.ldif
    run pack
    assert_status 1
    [[ $output == "vrk-build: the description is too long: with the signature it has "*" bytes, of 99999 at most" ]]
    assert_no_leftovers
}

@test "names that mean something elsewhere are refused" {
    local attribute value
    for attribute in evrkName evrkVersion evrkVariant evrkDependency; do
        # shellcheck disable=SC2016
        for value in a_b 'a b' ' a' 'a ' 'a;b' 'a$b' '../a' '.a' '-a' 'a/b' 'a*' "a'b" 'ä'; do
            { grep -v "$attribute" tree/package.ldif; printf '%s: %s\n' "$attribute" "$value"; } \
                >changed.ldif
            cp tree/package.ldif kept.ldif
            mv changed.ldif tree/package.ldif
            run pack
            mv kept.ldif tree/package.ldif
            assert_refused "package.ldif: $attribute \"$value\" is not allowed: only letters, digits and + - . , : ~ @ % = are, and neither a dot nor a minus sign at the start"
        done
    done
}

# refuse_ldif TEXT MESSAGE: with this text in package.ldif, backslashes as in printf.
refuse_ldif() {
    # shellcheck disable=SC2059
    printf "$1" >tree/package.ldif
    run pack
    assert_refused "package.ldif$2"
}

@test "a package.ldif that can't be meant is refused" {
    local head='evrkName: foo\nevrkVersion: 1\nevrkArchitecture: any\nevrkDescription: x\n' long
    refuse_ldif '' ': evrkName is missing'
    refuse_ldif 'evrkName: foo\n' ': evrkVersion is missing'
    refuse_ldif "${head/any/sparc}" ': evrkArchitecture "sparc" is unknown; it is one of any, i686, x86_64 and mips'
    refuse_ldif "${head/foo/foo.vrk}" ': evrkName "foo.vrk" would be taken for a file'\''s name: it must not end in .vrk'
    refuse_ldif "$head"'evrkVariant: default\n' ': the variant "default" means no variant: leave evrkVariant out'
    refuse_ldif "$head"'evrkVariant:\n' ': evrkVariant has no value'
    refuse_ldif "$head"'evrkName: bar\n' ': evrkName stands there twice'
    refuse_ldif "$head"'evrkDataSize: 7\n' ': evrkDataSize is filled in by vrk-build and must not be given'
    refuse_ldif "$head"'evrkColour: red\n' ': evrkColour is no attribute of a package'
    refuse_ldif "$head"'evrkDependency: a\nevrkDependency: a\n' ': evrkDependency a stands there twice'
    refuse_ldif "$head"'evrkDependency: foo\n' ': the package depends on itself'
    refuse_ldif "$head"'nonsense\n' ': this line has no colon: nonsense'
    refuse_ldif "$head"'evrkCreator:Jane\n' ': a blank must follow the colon in this line: evrkCreator:Jane'
    refuse_ldif "$head"'evrkCreator:: =x\n' ': this line can'\''t be read: evrkCreator:: =x'
    refuse_ldif "$head"'evrkCreator:< file:///etc/hostname\n' ': a value must stand in the file itself: evrkCreator:< file:///etc/hostname'
    refuse_ldif "$head"'evrkCreator;binary: /etc/hostname\n' ': a value must stand in the file itself: evrkCreator;binary: /etc/hostname'
    refuse_ldif "$head"'evrkCreator: a\033[31mb\n' ': evrkCreator holds a control character'
    refuse_ldif "$head"'evrkCreator: a\0b\n' ' holds a NUL byte'
    long=$(printf '%130s' '' | tr ' ' x)
    refuse_ldif "evrkName: $long\nevrkVersion: $long\nevrkArchitecture: any\nevrkDescription: x\n" ': name, variant, architecture and version are too long together: they make a file name of more than 255 bytes'
}

@test "a tree without package.ldif, with something else, or none at all is refused" {
    rm tree/package.ldif
    run pack
    assert_refused "tree/package.ldif can't be read: No such file or directory"
    ln -s /etc/hostname tree/package.ldif
    run pack
    assert_refused "tree/package.ldif is a symbolic link, and no regular file"
    rm tree/package.ldif
    mkfifo tree/package.ldif
    run timeout 60 vrk-build pack tree --key "$keys/key" --cert "$keys/cert"
    assert_refused "tree/package.ldif is no regular file"
    tree=nowhere run pack
    assert_refused "nowhere: No such file or directory"
    tree=tree/init/99-add.sh run pack
    assert_refused "tree/init/99-add.sh is no directory"
}

@test "links, pipes and files of 4 GiB are refused in a fork" {
    ln -s foo tree/data/usr/bin/bar
    run pack
    assert_refused "data/usr/bin/bar is a symbolic link: name it in info/link.txt instead, as directory|target|name"
    rm tree/data/usr/bin/bar
    mkfifo tree/dump/pipe
    run pack
    assert_refused "dump/pipe is no regular file"
    rm tree/dump/pipe
    truncate -s 4G tree/dump/huge
    run pack
    assert_refused "dump/huge is too large: a package holds files of less than 4 GiB"
}

@test "a file name with a control character is refused, and told in letters" {
    touch "tree/dump/a"$'\n'"b"
    run pack
    assert_refused 'a file name holds a control character: dump/a b'
    rm tree/dump/a*
    touch "tree/dump/a"$'\e'"[31m"
    run pack
    assert_refused 'a file name holds a control character: dump/a\x1B[31m'
}

@test "a path longer than a system could take is refused" {
    local part deep=tree/dump
    part=$(printf '%200s' '' | tr ' ' d)
    (
        cd tree/dump
        for _ in {1..18}; do
            mkdir "$part"
            cd "$part"
        done
        touch file
    )
    run pack
    assert_status 1
    [[ $output == "vrk-build: a path is longer than 3500 bytes: dump/ddd"* ]]
    rm -r "${deep:?}/$part"
}

# A rollback could not put such a file back.
@test "a path on the system of more than 1000 bytes is refused" {
    local fork part deep longest
    part=$(printf '%199s' '' | tr ' ' d)
    deep=$part/$part/$part/$part
    longest=$(printf '%199s' '' | tr ' ' f) # with the slash in front all of it is 1000 bytes
    for fork in data conf; do
        mkdir -p "tree/$fork/$deep"
        touch "tree/$fork/$deep/$longest"
        run pack
        assert_status 0
        mv "tree/$fork/$deep/$longest" "tree/$fork/$deep/${longest}f"
        run pack
        assert_status 1
        [[ $output == "vrk-build: a path below $fork is longer than 1000 bytes: $fork/ddd"* ]]
        rm -r "tree/${fork:?}/$part"
    done
}

@test "what is the package manager's own is refused" {
    local name
    for name in desc.txt inst.txt hash/x init conf/x dump; do
        mkdir -p "$(dirname "tree/info/$name")"
        touch "tree/info/$name"
        run pack
        assert_refused "info/$name can't be packed: that name is the package manager's own"
        rm -r "tree/info/${name%%/*}"
    done
    mkdir -p tree/data/var/lib/vrm/{certstore,installed/foo}
    touch tree/data/var/lib/vrm/certstore/0123.crt tree/data/var/lib/vrm/installed/foo/desc.txt
    run pack
    assert_refused "data/var/lib/vrm/installed/foo/desc.txt can't be packed: /var/lib/vrm/installed is the package manager's own"
    rm -r tree/data/var/lib/vrm/installed
    mkdir -p tree/data/var/lib/vrm/saved
    touch tree/data/var/lib/vrm/saved/x
    run pack
    assert_refused "data/var/lib/vrm/saved/x can't be packed: /var/lib/vrm/saved is the package manager's own"
    rm -r tree/data/var/lib/vrm/saved
    pack
}

@test "one path is one file" {
    mkdir -p tree/data/etc tree/conf/usr/bin/foo
    touch tree/data/etc/foo.conf
    run pack
    assert_refused "conf/etc/foo.conf is in the folder data too: a file is either data or configuration"
    rm tree/data/etc/foo.conf
    touch tree/conf/usr/bin/foo/x
    run pack
    assert_refused "data/usr/bin/foo is a file, but conf/usr/bin/foo/x needs a directory there"
}

# refuse_list FILE LINE MESSAGE
refuse_list() {
    printf '%b\n' "$2" >"tree/info/$1"
    run pack
    assert_refused "info/$1, line ${4:-1}: $3"
}

@test "lines of the lists that an installation would pass over are refused" {
    local long
    refuse_list perm.txt '/a' 'it must read path|mode'
    refuse_list perm.txt '/a|755|x' 'it must read path|mode'
    refuse_list perm.txt '/a|755||' 'it must read path|mode'
    refuse_list perm.txt 'a|755' 'the path must begin with a slash'
    refuse_list perm.txt '/a|789' 'the mode must be octal digits, 7777 at most'
    refuse_list perm.txt '/a|' 'the mode must be octal digits, 7777 at most'
    refuse_list perm.txt '/a|10000' 'the mode must be octal digits, 7777 at most'
    refuse_list perm.txt '\n/a|755\r' 'it holds a control character; lines end in LF alone' 2
    long=/$(printf '%2063s' '' | tr ' ' x)
    refuse_list perm.txt "$long|755" 'it is too long'
    printf '%s|755|\n\n/b|0644' "${long%x}" >tree/info/perm.txt
    pack -o "$BATS_TEST_TMPDIR/good.vrk"
    rm good.vrk
    refuse_list link.txt '/a|b|c|d' 'it must read directory|target|name'
    refuse_list link.txt 'a|b|c' 'the directory must begin with a slash'
    refuse_list link.txt '|b|c' 'the first line must name a directory'
    refuse_list link.txt '/a|b|' 'target and name must both be given'
    refuse_list link.txt '/a||c' 'target and name must both be given'
    refuse_list link.txt '/a|b|..' '".." is no name for a link'
    printf '/usr/bin\n|foo|bar\n/usr/lib|foo|x/bar\n/etc||\n' >tree/info/link.txt
    pack
}

@test "a link in the place of a directory of the base layout is refused without --base" {
    local line path
    for path in /bin /boot /dev /etc /home /lib /lib64 /media /mnt /opt /proc /root /run /sbin /srv \
        /sys /tmp /usr /usr/bin /usr/lib /usr/sbin /var; do
        refuse_list link.txt "${path%/*}/|target|${path##*/}" \
            "the link $path would take the place of a directory of the base layout; only a package that makes this layout may do so, with --base"
    done
    for line in '//|x|lib' '/usr/..|x|lib' '/..|x|lib' '/usr/./bin/../..//|x|lib' '/opt/x|x|../../lib' \
        '/opt|x|/lib' '/opt|x|//usr/../lib' '/opt|x|.././lib'; do
        refuse_list link.txt "$line" \
            "the link /lib would take the place of a directory of the base layout; only a package that makes this layout may do so, with --base"
    done
    refuse_list link.txt '/usr/./lib/../\n\n|x|y\n|x|lib' \
        "the link /usr/lib would take the place of a directory of the base layout; only a package that makes this layout may do so, with --base" 4
    printf '/|usr/lib|lib\n/usr||\n' >tree/info/link.txt
    pack --base
    rm foo_any_1.2.vrk
    # What lies in them is no matter, nor is a name that only looks alike.
    printf '/lib|a|b\n/|a|libx\n/usr/lib|a|lib\n/usr|a|share\n/opt/|a|bin\n/bin||\n' >tree/info/link.txt
    pack
}

@test "an output that can't be is refused before anything is made" {
    run pack -o nowhere/
    assert_refused "there is no directory nowhere/"
    run pack -o name
    assert_refused "name is no directory, and no name of a package file, which must end in .vrk"
    run pack -o .vrk
    assert_refused ".vrk is no directory, and no name of a package file, which must end in .vrk"
    run pack -o nowhere/foo.vrk
    assert_refused "nowhere/foo.vrk can't be written: No such file or directory"
    run pack -o tree/data
    assert_refused "the package file tree/data/foo_any_1.2.vrk would lie in its own source tree; choose another place with --output"
    run env --chdir tree vrk-build pack . --key "$keys/key" --cert "$keys/cert"
    assert_refused "the package file foo_any_1.2.vrk would lie in its own source tree; choose another place with --output"
}
