#!/usr/bin/env bats
# scripts/fltk, with stand-ins for apt-get and cmake: nothing is fetched and nothing is built.

# The text between single quotes is for other shells.
# shellcheck disable=SC2016

setup() {
    source_dir=$(cd "$BATS_TEST_DIRNAME/../.." && pwd -P)
    cd "$BATS_TEST_TMPDIR"
    export XDG_CACHE_HOME=$PWD/cache
    mkdir bin
    PATH=$PWD/bin:$PATH
    export SCENE=$PWD
    stand_in cmake 'printf "cmake %s\n" "$*" >>"$SCENE/called"
        case $* in
        *look*) test -e "$SCENE/installed" ;;
        *--install*) tree=$DESTDIR$SCENE/cache/vrm/fltk-1.4.9
            mkdir -p "$tree/share/fltk" && touch "$tree/share/fltk/FLTKConfig.cmake" ;;
        *) test ! -e "$SCENE/broken" || { echo "error: no such header"; exit 1; } ;;
        esac'
    stand_in apt-get 'printf "apt-get %s\n" "$*" >>"$SCENE/called"
        case $* in
        *indextargets*) cat "$SCENE/targets" ;;
        *" update")
            for word; do case $word in Dir::Etc::SourceList=*) cp "${word#*=}" "$SCENE/sources" ;; esac; done ;;
        *source*) test ! -e "$SCENE/unreachable" || { echo "E: unreachable"; exit 100; }
            mkdir fltk && echo text >fltk/CMakeLists.txt
            tar -czf fltk1.4_1.4.9.orig.tar.gz fltk && rm -r fltk ;;
        esac'
    printf '%s\n' 'Debian Debian-Security bookworm-security http://security.test/' \
        'Debian Debian bookworm-updates http://updates.test/' \
        'Other Other bookworm http://other.test/' \
        'Debian Debian bookworm http://mirror.test/debian/' >targets
    : >called
}

stand_in() { # NAME BODY
    printf '#!/bin/bash\n%s\n' "$2" >"bin/$1"
    chmod +x "bin/$1"
}

@test "one that was built before is enough" {
    mkdir -p cache/vrm/fltk-1.4.9/share/fltk
    touch cache/vrm/fltk-1.4.9/share/fltk/FLTKConfig.cmake
    run "$source_dir/scripts/fltk"
    [[ $status == 0 && $output == "" ]]
    [[ ! -s called ]]
}

@test "an installed one is enough" {
    touch installed
    run "$source_dir/scripts/fltk"
    [[ $status == 0 && $output == "" ]]
    ! grep -q apt-get called || false
    [[ ! -e cache/vrm ]]
}

@test "else it is built from the source package of the machine's own mirror" {
    run "$source_dir/scripts/fltk"
    [[ $status == 0 ]]
    [[ $output == "fltk: building FLTK 1.4 from source" ]]
    [[ $(cat sources) == "deb-src [signed-by=/"*".gpg] http://mirror.test/debian/ testing main" ]]
    [[ -f cache/vrm/fltk-1.4.9/share/fltk/FLTKConfig.cmake ]]
    [[ $(ls -A cache/vrm) == fltk-1.4.9 ]]
    : >called
    run "$source_dir/scripts/fltk"
    [[ $status == 0 && $output == "" && ! -s called ]]
}

@test "without a mirror it says so" {
    : >targets
    run "$source_dir/scripts/fltk"
    [[ $status == 1 ]]
    [[ $output == *"fltk: apt-get knows no Debian mirror"* ]]
}

@test "a source package that can't be had is told of, with the reason" {
    touch unreachable
    run "$source_dir/scripts/fltk"
    [[ $status == 1 ]]
    [[ $output == *"E: unreachable"* ]]
    [[ ${lines[-1]} == "fltk: the source package fltk1.4 of Debian testing can't be had; install FLTK 1.4 instead" ]]
    [[ ! -e cache/vrm ]]
}

@test "a build that fails is told of, and nothing half made stays" {
    touch broken
    run "$source_dir/scripts/fltk"
    [[ $status == 1 ]]
    [[ $output == *"error: no such header"*"fltk: FLTK can't be built; the reason is above" ]]
    [[ ! -e cache/vrm ]]
}
