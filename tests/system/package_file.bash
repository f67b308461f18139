# shellcheck shell=bash
# Loaded by the tests that change package files by hand, after `helpers`: load package_file

head_size() { # FILE
    echo $((10#$(head -c 11 "$1" | tail -c 5)))
}

head_of() { # FILE
    tail -c +12 "$1" | head -c "$(head_size "$1")"
}

payload_of() { # FILE
    tail -c +$((12 + $(head_size "$1"))) "$1"
}

# Puts a package file together: magic, size, description and payload.
join_package() { # DESCRIPTION PAYLOAD FILE
    { printf 'EVRM20%05d' "$(stat -c %s "$1")" && cat "$1" "$2"; } >"$3"
}

# The attribute of a signature of a payload, by the signer's key or another one.
signature_of() { # PAYLOAD [KEY]
    printf 'evrkRsaSigData:: %s\n' \
        "$(openssl dgst -sha1 -sign "${2:-$signer_key}" "$1" | base64 -w 0)"
}
