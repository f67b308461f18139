#!/usr/bin/env bats
# The sample packages, installed from a catalogue: what is on the machine afterwards, in the
# inventory and in the history. The first package brings a hook, the second comes with a chain and a
# diamond of dependencies; a configuration file of the latter stands there already.

load examples

# Takes the place of the scripts' shell and notes how each script is run.
watch_scripts() {
    local shell=$repository/scriptdir/ash
    rm "$shell"
    cat >"$shell" <<'END'
#!/bin/sh
{
    echo "run $*"
    echo "in $PWD"
    env | grep -E '^(PATH|VRM_[A-Z]*|VRK_[A-Z_]*)=' | sort
    echo
} >>/root/script.trace
exec /var/lib/vrm/scriptdir/busybox ash "$@"
END
    chmod 755 "$shell"
}

setup_file() {
    make_catalogue
    watch_scripts
    echo language=nl >/etc/greet.conf
    date +%s >"$BATS_FILE_TMPDIR/begin"
    # Modes must not depend on the caller's mask.
    umask 077
    pvrm install --yes menu-index >"$BATS_FILE_TMPDIR/menu-index.out" 2>&1
    pvrm install --yes guestbook >"$BATS_FILE_TMPDIR/guestbook.out" 2>&1
    pvrm install --yes handbook >"$BATS_FILE_TMPDIR/handbook.out" 2>&1
    umask 022
    date +%s >"$BATS_FILE_TMPDIR/end"
}

# The lines of an installation that tell the order of things.
course_of() { # PACKAGE
    grep -E '^(guestbook|greet|menu-index): |^pvrm: (getting|verifying|exec|keep|installed|installing new|conf)' \
        "$BATS_FILE_TMPDIR/$1.out"
}

# What one run of a script left in the trace.
trace_of() { # SCRIPT
    sed -n "\\,^run $1\$,,/^\$/p" /root/script.trace
}

@test "every example becomes a package, under its unique name" {
    run ls "$BATS_FILE_TMPDIR/packed/packages"
    assert_equal "$output" 'almanac_any_2.1.vrk
greet_any_1.4.vrk
greet_lite_any_1.4.vrk
guestbook_any_0.9.vrk
handbook_any_2024.2.vrk
menu-index_any_1.2.vrk
phrases_any_3.0.vrk
textlib_any_1.10.vrk'
    assert_equal "$(printf '%s\n' "$trees"/*/package.ldif | wc -l)" 8
    run ls "$BATS_FILE_TMPDIR/packed/updates"
    assert_equal "$output" 'greet_any_1.5.vrk
phrases_any_3.1.vrk'
    assert_equal "$(find "$trees/updates" -name package.ldif | wc -l)" 2
}

@test "everything goes in one order, with the scripts at their places and the hooks last" {
    assert_equal "$(course_of menu-index)" 'pvrm: getting menu-index_any_1.2
pvrm: verifying menu-index_any_1.2
pvrm: installed menu-index_any_1.2
menu-index: 0 entries, after menu-index
pvrm: configured menu-index'
    assert_equal "$(course_of guestbook)" 'pvrm: getting guestbook_any_0.9
pvrm: getting greet_any_1.4
pvrm: getting phrases_any_3.0
pvrm: getting textlib_any_1.10
pvrm: getting almanac_any_2.1
pvrm: verifying almanac_any_2.1
pvrm: installed almanac_any_2.1
pvrm: verifying textlib_any_1.10
pvrm: installed textlib_any_1.10
pvrm: verifying phrases_any_3.0
pvrm: installed phrases_any_3.0
pvrm: verifying greet_any_1.4
pvrm: keeping existing config file /etc/greet.conf
pvrm: installed greet_any_1.4
pvrm: verifying guestbook_any_0.9
pvrm: executing pre-install script for guestbook_any_0.9
guestbook: there is room for the book (INSTALL of 0.9)
pvrm: installing new config file /etc/guestbook.conf
pvrm: executing post-install script for guestbook_any_0.9
guestbook: began a new book (INSTALL of 0.9)
pvrm: installed guestbook_any_0.9
greet: greets in the language nl
pvrm: configured greet
menu-index: 2 entries, after greet
pvrm: configured greet
menu-index: 2 entries, after guestbook
pvrm: configured guestbook'
    assert_equal "$(course_of handbook)" 'pvrm: getting handbook_any_2024.2
pvrm: verifying handbook_any_2024.2
pvrm: installed handbook_any_2024.2
menu-index: 3 entries, after handbook
pvrm: configured handbook'
}

@test "these scripts are run and no others" {
    stage=$repository/stagearea/guestbook_any_0.9/new/init
    assert_equal "$(grep '^run ' /root/script.trace)" "run $repository/installed/menu-index/init/99-cfg.sh
run $stage/00-add.sh
run $stage/99-add.sh
run $repository/installed/greet/init/99-cfg.sh"
}

@test "the scripts around an installation know the package and its stage directory" {
    stage=$repository/stagearea/guestbook_any_0.9/new
    for script in 00-add.sh 99-add.sh; do
        assert_equal "$(trace_of "$stage/init/$script")" "run $stage/init/$script
in $repository/scriptdir
PATH=$repository/scriptdir
VRK_ARCHITECTURE=any
VRK_ARCHITECTURE_NEW=any
VRK_CREATOR=Example Distribution
VRK_CREATOR_NEW=Example Distribution
VRK_DEPENDENCIES=greet
VRK_DEPENDENCIES_NEW=greet
VRK_DESCRIPTION=Greets guests and keeps their names
VRK_DESCRIPTION_NEW=Greets guests and keeps their names
VRK_NAME=guestbook
VRK_STAGE_NEW=$stage
VRK_VERSION=0.9
VRK_VERSION_NEW=0.9
VRM_MODE=INSTALL"
    done
}

@test "a configuration script knows the package and its entry in the inventory" {
    entry=$repository/installed/greet
    assert_equal "$(trace_of "$entry/init/99-cfg.sh")" "run $entry/init/99-cfg.sh
in $repository/scriptdir
PATH=$repository/scriptdir
VRK_ARCHITECTURE=any
VRK_ARCHITECTURE_NEW=any
VRK_CREATOR=Example Distribution
VRK_CREATOR_NEW=Example Distribution
VRK_DEPENDENCIES=phrases almanac
VRK_DEPENDENCIES_NEW=phrases almanac
VRK_DESCRIPTION=Greets people by name and season
VRK_DESCRIPTION_NEW=Greets people by name and season
VRK_NAME=greet
VRK_VERSION=1.4
VRK_VERSION_NEW=1.4
VRM_VRKDIR=$entry"
}

@test "the inventory holds an entry for each package, with these modes" {
    run bash -c "cd $repository && find installed fileindex -printf '%p %y %m\n' | LC_ALL=C sort"
    assert_equal "$output" 'fileindex d 755
fileindex/almanac f 644
fileindex/greet f 644
fileindex/guestbook f 644
fileindex/handbook f 644
fileindex/menu-index f 644
fileindex/phrases f 644
fileindex/textlib f 644
installed d 755
installed/almanac d 755
installed/almanac/desc.txt f 755
installed/almanac/hash d 755
installed/almanac/hash/data.txt f 755
installed/almanac/inst.txt f 644
installed/greet d 755
installed/greet/conf d 755
installed/greet/conf/etc d 755
installed/greet/conf/etc/greet.conf f 644
installed/greet/desc.txt f 755
installed/greet/hash d 755
installed/greet/hash/conf.txt f 755
installed/greet/hash/data.txt f 755
installed/greet/hash/init.txt f 755
installed/greet/init d 755
installed/greet/init/99-cfg.sh f 755
installed/greet/inst.txt f 644
installed/greet/link.txt f 755
installed/guestbook d 755
installed/guestbook/conf d 755
installed/guestbook/conf/etc d 755
installed/guestbook/conf/etc/guestbook.conf f 644
installed/guestbook/desc.txt f 755
installed/guestbook/hash d 755
installed/guestbook/hash/conf.txt f 755
installed/guestbook/hash/data.txt f 755
installed/guestbook/hash/init.txt f 755
installed/guestbook/init d 755
installed/guestbook/init/00-add.sh f 755
installed/guestbook/init/00-del.sh f 755
installed/guestbook/init/99-add.sh f 755
installed/guestbook/init/99-del.sh f 755
installed/guestbook/inst.txt f 644
installed/guestbook/perm.txt f 755
installed/handbook d 755
installed/handbook/desc.txt f 755
installed/handbook/dump d 755
installed/handbook/dump/outline.txt f 644
installed/handbook/hash d 755
installed/handbook/hash/data.txt f 755
installed/handbook/hash/dump.txt f 755
installed/handbook/inst.txt f 644
installed/handbook/link.txt f 755
installed/menu-index d 755
installed/menu-index/desc.txt f 755
installed/menu-index/hash d 755
installed/menu-index/hash/data.txt f 755
installed/menu-index/hash/init.txt f 755
installed/menu-index/init d 755
installed/menu-index/init/99-cfg.sh f 755
installed/menu-index/init/99-del.sh f 755
installed/menu-index/inst.txt f 644
installed/phrases d 755
installed/phrases/desc.txt f 755
installed/phrases/hash d 755
installed/phrases/hash/data.txt f 755
installed/phrases/inst.txt f 644
installed/textlib d 755
installed/textlib/desc.txt f 755
installed/textlib/hash d 755
installed/textlib/hash/data.txt f 755
installed/textlib/inst.txt f 644'
}

@test "the install record tells why and for whose sake" {
    expected() { # PACKAGE
        case $1 in
        almanac | phrases) printf 'evrkInstallType: D\nevrkInstallHead: greet' ;;
        textlib) printf 'evrkInstallType: D\nevrkInstallHead: phrases' ;;
        greet) printf 'evrkInstallType: D\nevrkInstallHead: guestbook' ;;
        *) echo 'evrkInstallType: X' ;;
        esac
    }
    begin=$(<"$BATS_FILE_TMPDIR/begin") end=$(<"$BATS_FILE_TMPDIR/end")
    for entry in "$repository"/installed/*; do
        read -r key time <"$entry/inst.txt"
        assert_equal "$key" evrkInstallTime:
        ((begin <= time && time <= end))
        assert_equal "$(tail -n +2 "$entry/inst.txt")" "$(expected "${entry##*/}")"
    done
}

@test "the description is kept as the package has it" {
    assert_equal "$(<"$repository/installed/greet/desc.txt")" "evrmVersion: 2.0
evrkName: greet
evrkVersion: 1.4
evrkArchitecture: any
evrkCreator: Example Distribution
evrkDescription: Greets people by name and season
evrkDependency: phrases
evrkDependency: almanac
evrkDataSize: $(find "$trees"/greet/{data,conf,init} -type f -printf '%s\n' |
        awk '{ sum += $1 } END { print sum }')"
}

@test "each data file lies at its place, with the tree's content and its executable bit" {
    count=0
    for entry in "$repository"/installed/*; do
        tree=${entry##*/}
        while read -r file; do
            cmp "$file" "$trees/$tree/data$file"
            mode=644
            [[ ! -x $trees/$tree/data$file ]] || mode=755
            assert_equal "$file $(stat -c %a "$file")" "$file $mode"
            count=$((count + 1))
        done < <(files_of "$tree" data)
    done
    assert_equal "$count" 17
}

@test "the file index lists the data files and no others" {
    for entry in "$repository"/installed/*; do
        assert_equal "$(LC_ALL=C sort "$repository/fileindex/${entry##*/}")" \
            "$(files_of "${entry##*/}" data)"
    done
}

@test "the hash lists that are kept fit the files that they tell of" {
    local count=0
    check_list() { # ROOT LIST
        local file
        grep -vqE '^[0-9a-f]{40}:[^/]' "$2" && return 1
        (cd "$1" && sed 's/:/  /' "$2" | sha1sum --check --strict --quiet)
        count=$((count + 1))
    }
    for entry in "$repository"/installed/*; do
        for list in "$entry"/hash/*.txt; do
            fork=$(basename "$list" .txt)
            root=$entry/$fork
            [[ $fork != data ]] || root=/
            check_list "$root" "$list"
            assert_equal "$(cut -c 42- "$list" | sed 's,^,/,' | LC_ALL=C sort)" \
                "$(files_of "${entry##*/}" "$fork")"
        done
    done
    assert_equal "$count" 13
}

@test "scripts, lists, configuration and what is only kept stand in the entry" {
    for entry in "$repository"/installed/*; do
        tree=$trees/${entry##*/}
        for fork in init conf dump; do
            if [[ -d $tree/$fork ]]; then
                diff -r "$tree/$fork" "$entry/$fork"
            else
                [[ ! -e $entry/$fork ]]
            fi
        done
        for list in "$tree"/info/*; do
            [[ ! -f $list ]] || cmp "$list" "$entry/${list##*/}"
        done
    done
    [[ ! -e /outline.txt ]]
}

@test "the stage area keeps the package files as they were fetched, and nothing else" {
    assert_equal "$(ls -A "$repository/stagearea")" 'almanac_any_2.1.vrk
greet_any_1.4.vrk
guestbook_any_0.9.vrk
handbook_any_2024.2.vrk
menu-index_any_1.2.vrk
phrases_any_3.0.vrk
textlib_any_1.10.vrk'
    for file in "$repository"/stagearea/*; do
        cmp "$file" "$BATS_FILE_TMPDIR/packed/packages/${file##*/}"
    done
}

@test "the history tells what was installed, and why" {
    assert_equal "$(history_lines)" 'installed menu-index_any_1.2 as requested by user
installed almanac_any_2.1 as dependency of greet
installed textlib_any_1.10 as dependency of phrases
installed phrases_any_3.0 as dependency of greet
installed greet_any_1.4 as dependency of guestbook
installed guestbook_any_0.9 as requested by user
installed handbook_any_2024.2 as requested by user'
    while read -r day time _; do
        moment=$(date -d "$day ${time%:}" +%s)
        (($(<"$BATS_FILE_TMPDIR/begin") <= moment && moment <= $(<"$BATS_FILE_TMPDIR/end")))
    done <"$repository/install.log"
}

@test "the hook of an installed package acts for later ones" {
    assert_equal "$(</var/cache/menu-index/index)" 'Greet somebody|greet
Guest book|guestbook show
Handbook|more /usr/share/doc/handbook/index.txt'
}

@test "a configuration file that stood there is kept, a missing one is installed" {
    assert_equal "$(</etc/greet.conf)" language=nl
    cmp /etc/guestbook.conf "$trees/guestbook/conf/etc/guestbook.conf"
    run pvrm owner /etc/guestbook.conf
    assert_status 1
}

@test "links are made as listed" {
    assert_equal "$(readlink /usr/bin/welcome)" greet
    assert_equal "$(readlink /usr/share/doc/handbook/index.txt)" 1-packages.txt
    assert_equal "$(readlink /usr/share/doc/handbook/next.txt)" 2-configuration.txt
}

@test "permissions are set as listed, with or without a closing bar" {
    assert_equal "$(stat -c %a /var/lib/guestbook)" 750
    assert_equal "$(stat -c %a /etc/guestbook.conf)" 640
}

@test "without a variant asked for the default one is taken" {
    run grep -c evrkVariant "$repository/installed/greet/desc.txt"
    assert_equal "$output" 0
    cmp /usr/bin/greet "$trees/greet/data/usr/bin/greet"
}

@test "the programs work together" {
    run guestbook sign Ada 04
    assert_status 0
    assert_equal "$output" '~~~~~~~~~~~~~~~~~~~~~~~~~~~
~ Goedendag, Ada!         ~
~ De tuin staat in bloei. ~
~~~~~~~~~~~~~~~~~~~~~~~~~~~'
    run guestbook show
    assert_equal "$output" 'Guest book
Signed since version 0.9:
1. Ada'
}

@test "a guest who signs holds up the removal, and the names outlast it" {
    mkdir /var/lib/guestbook/lock
    run pvrm remove guestbook
    rmdir /var/lib/guestbook/lock
    assert_status 1
    assert_line 'guestbook: somebody is signing the book'
    assert_line 'pvrm: guestbook was not removed'
    is_installed guestbook
    run pvrm remove guestbook
    assert_status 0
    assert_line "guestbook: the guests' names stay in /var/lib/guestbook/book"
    assert_line 'pvrm: removed guestbook_any_0.9'
    assert_line 'pvrm: keeping config file /etc/guestbook.conf'
    refute_installed guestbook
    [[ -e /var/lib/guestbook/book ]]
}

@test "the index goes with its maker" {
    run pvrm remove menu-index
    assert_status 0
    assert_line 'menu-index: removed the index'
    [[ ! -e /var/cache/menu-index ]]
    refute_installed menu-index
}
