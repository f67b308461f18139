#!/usr/bin/env bats
# Removing several packages with one command.

load helpers

setup_file() { begin_tests; }

setup() { clean_repository; }

# Installs packages that need each other from one directory, in one call.
install_all() { # FILE...
    pvrm install --yes --dir "$BATS_TEST_TMPDIR/packages" "$@" >/dev/null
}

@test "two that share a dependency go with it" {
    package libbz2 >/dev/null
    install_all "$(package zip needs=libbz2)" "$(package unzip needs=libbz2)"
    assert_equal "$(install_type zip)$(install_type unzip)$(install_type libbz2)" XXD
    run pvrm remove zip unzip
    assert_status 0
    assert_output_has '3 packages to remove'
    refute_output_has 'has changed'
    refute_installed zip
    refute_installed unzip
    refute_installed libbz2
}

@test "a dependency of one that stays is kept, and the holders are named" {
    package libbz2 >/dev/null
    install_all "$(package zip needs=libbz2)" "$(package unzip needs=libbz2)"
    install_all "$(package backup needs=zip)" "$(package nightly needs=zip)"
    run pvrm remove unzip zip
    assert_status 1
    assert_line "pvrm: zip can't be removed, as backup, nightly need it"
    assert_line 'pvrm: removed unzip_any_1.0'
    is_installed zip
    is_installed libbz2
    refute_installed unzip
}

@test "the last lines name what failed, each with its reason" {
    package libbz2 >/dev/null
    install_all "$(package zip needs=libbz2 'init/00-del.sh=exit 3')" \
        "$(package unzip needs=libbz2 conf/etc/unzip.conf=a)" "$(package held)" \
        "$(package holder needs=held)" "$(package foo)"
    echo edited >/etc/unzip.conf
    run pvrm remove nothing zip unzip held foo
    rm /etc/unzip.conf
    assert_status 1
    assert_line 'pvrm: libbz2 stays installed, as zip needs it'
    assert_equal "$(tail -n 4 <<<"$output")" 'pvrm: 3 of 5 removals failed:
  nothing: it is not installed
  held: holder needs it
  zip: the script 00-del.sh of zip_any_1.0, which runs before the removal, failed: exit status 3'
    refute_installed unzip
    refute_installed foo
    is_installed libbz2
    # Of one request the reason is just above.
    run pvrm remove held
    refute_output_has 'failed:'
}

@test "a package that refuses to go is not left without what it needs" {
    package a needs=t 'init/00-del.sh=exit 1' >/dev/null
    install_all "$(package t needs=a)"
    assert_equal "$(install_type t)$(install_type a)" XD
    run pvrm remove t a
    assert_status 1
    is_installed a
    is_installed t
    assert_line "pvrm: t can't be removed, as a needs it"
    assert_equal "$(tail -n 3 <<<"$output")" 'pvrm: 2 of 2 removals failed:
  a: the script 00-del.sh of a_any_1.0, which runs before the removal, failed: exit status 1
  t: a needs it'
}

@test "what stays with a failed package is not the reason of the failure" {
    package libbz2 >/dev/null
    install_all "$(package zip needs=libbz2 'init/00-del.sh=exit 3')" \
        "$(package unzip needs=libbz2 'init/00-del.sh=exit 4')"
    run pvrm remove zip unzip
    assert_status 1
    assert_line 'pvrm: libbz2 stays installed, as zip needs it'
    assert_equal "$(tail -n 2 <<<"$output")" \
        '  zip: the script 00-del.sh of zip_any_1.0, which runs before the removal, failed: exit status 3
  unzip: the script 00-del.sh of unzip_any_1.0, which runs before the removal, failed: exit status 4'
}

@test "the history names for whose sake a shared dependency goes" {
    package libbz2 >/dev/null
    install_all "$(package zip needs=libbz2)" "$(package unzip needs=libbz2)"
    rm "$repository/install.log"
    pvrm remove unzip zip
    assert_equal "$(history_lines)" 'deleted unzip_any_1.0 as requested by user
deleted zip_any_1.0 as requested by user
deleted libbz2_any_1.0 as dependency of zip'
}

# --- Any subset of sixty packages -----------------------------------------------------------------

# Sets `drawn` to a number below a limit; the series begins anew when `series` is set.
draw() { # LIMIT
    series=$(((series * 1103515245 + 12345) % 2147483648))
    drawn=$((series / 65536 % $1))
}

# Makes sixty packages with shared and circular dependencies, installs some of them with all that
# they need, and keeps a copy of the result.
make_system() { # SEED
    local i other file need needs chosen=()
    series=$1
    for ((i = 0; i < 60; i++)); do
        needs=()
        draw 3
        for ((other = drawn; other > 0; other--)); do
            draw 12
            need=p$((i + 1 + drawn < 60 ? i + 1 + drawn : i - 1 - drawn))
            [[ " ${needs[*]} " == *" needs=$need "* ]] || needs+=("needs=$need")
        done
        file=$(package "p$i" "${needs[@]}")
        draw 5
        ((drawn > 1)) || chosen+=("$file")
    done
    install_all "${chosen[@]}"
    mkdir "$BATS_TEST_TMPDIR/copy"
    cp -a "$repository"/{installed,fileindex} "$BATS_TEST_TMPDIR/copy"
}

restore_system() {
    rm -r "$repository"/{installed,fileindex}
    cp -a "$BATS_TEST_TMPDIR"/copy/* "$repository"
    local index path
    for index in "$repository"/fileindex/*; do
        while read -r path; do
            mkdir -p "${path%/*}"
            : >"$path"
        done <"$index"
    done
}

installed_names() {
    find "$repository/installed" -mindepth 1 -maxdepth 1 -printf '%f\n' | sort
}

# What must be left, by the definition: tries again and again what has to stay until nothing changes.
expected_rest() { # yes|no REQUEST...
    local keep_deps=$1 name
    shift
    for name in $(installed_names); do
        awk -v name="$name" '
            /^evrkDependency: / { needs = needs " " $2 }
            /^evrkInstallType: / { type = $2 }
            /^evrkInstallHead: / { head = $2 }
            END { print name, type, head == "" ? "-" : head, needs }' \
            "$repository/installed/$name/desc.txt" "$repository/installed/$name/inst.txt"
    done | awk -v requests="$*" -v keep_deps="$keep_deps" '
        function exempt(holder, name,   other) {
            if (!(name in asked) || head[holder] != name) return 0
            for (other in type) if ((other, holder) in needs && !(other in going)) return 0
            return 1
        }
        function must_stay(name,   other, wanted) {
            wanted = name in asked
            for (other in type) if ((other, name) in needs && other != name) {
                if (!(other in going) && !exempt(other, name)) return 1
                if (other in going) wanted = 1
            }
            return !wanted || (!(name in asked) && head[name] in type && !(head[name] in going))
        }
        {
            type[$1] = $2; head[$1] = $3
            for (i = 4; i <= NF; i++) needs[$1, $i] = 1
        }
        END {
            count = split(requests, list, " ")
            for (i = 1; i <= count; i++) asked[list[i]] = going[list[i]] = 1
            do {
                changed = 0
                if (keep_deps == "no")
                    for (name in type) if (type[name] == "D" && !(name in going))
                        for (other in type) if (other in going && (other, name) in needs)
                            changed = going[name] = 1
            } while (changed)
            do {
                changed = 0
                for (name in type) if (name in going && must_stay(name)) {
                    delete going[name]
                    changed = 1
                }
            } while (changed)
            for (name in type) if (!(name in going)) print name
        }' | sort
}

@test "of any subset of sixty packages goes what must go, and nothing else" {
    local seed chance name requests expected keep_deps
    make_system 7
    (($(installed_names | wc -l) > 40))
    for seed in 1 2 3 4 5 6; do
        restore_system
        series=$seed requests=() keep_deps=no
        chance=$((seed * 2 - 1))
        for name in $(installed_names | sort -R --random-source=<(yes "$seed")); do
            draw 12
            ((drawn >= chance)) || requests+=("$name")
        done
        ((${#requests[@]} > 1))
        ((seed % 3 != 0)) || keep_deps=yes
        expected=$(expected_rest "$keep_deps" "${requests[@]}")
        if [[ $keep_deps == yes ]]; then requests+=(--keep-deps); fi
        run pvrm remove "${requests[@]}"
        refute_output_has 'has changed'
        assert_equal "$(installed_names)" "$expected"
        assert_equal "$(find "$repository/fileindex" -type f -printf '%f\n' | sort)" "$expected"
    done
}

@test "what would be left without a package, and was not shown so, keeps that from being removed" {
    local requests
    for requests in foo 'foo baz'; do
        pvrm --quiet install --yes "$(package foo)" "$(package bar)" "$(package baz)"
        start_on_terminal "pvrm remove $requests"
        await_text '[Y/n]'
        # It came for the sake of foo, so the plan that is made anew leaves it with a warning.
        echo 'evrkDependency: foo' >>"$repository/installed/bar/desc.txt"
        sed -i '/^evrkInstallHead/d; s/^evrkInstallType: .*/evrkInstallType: D\nevrkInstallHead: foo/' \
            "$repository/installed/bar/inst.txt"
        type_in $'y\n'
        end_on_terminal
        assert_status 1
        assert_line 'pvrm: foo was not removed: bar needs it, which was not shown; try again'
        is_installed foo
        clean_repository
    done
}
