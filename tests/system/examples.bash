# shellcheck shell=bash
# Loaded by the tests that install the sample packages: load examples

load helpers

trees=$source_dir/examples

# Packs all examples, makes them the catalogue's packages, and trusts their signer. For setup_file.
make_catalogue() {
    packed=$BATS_FILE_TMPDIR/packed
    "$trees/pack-all" "$packed"
    cp "$packed"/packages/*.vrk "$repository/packages/"
    pvrm trust --yes "$packed/signer.pem"
    pvrm refresh
}

# Packs one tree with the key of make_catalogue, without the variables of that function.
pack_to() { # TREE DIRECTORY
    vrk-build pack "$1" --key "$BATS_FILE_TMPDIR/packed/signer.key" \
        --cert "$BATS_FILE_TMPDIR/packed/signer.pem" --output "$2"
}

# The files of a fork of a tree, each with a leading slash.
files_of() { # TREE FORK
    (cd "$trees/$1/$2" && find . -type f | sed 's/^\.//' | LC_ALL=C sort)
}
