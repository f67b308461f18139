// vrk-build makes and signs package files.

#include <openssl/bio.h>

#include <CLI/CLI.hpp>
#include <cstdio>
#include <exception>

#include "package/osslutil.h"
#include "support/boundary.h"
#include "support/terminal_text.h"
#include "tools/vrk-build/keygen.h"
#include "tools/vrk-build/pack.h"
#include "tools/vrk-build/problem.h"
#include "tools/vrk-build/show.h"

namespace {

enum exit_status { EXIT_GOOD = 0, EXIT_PROBLEM = 1, EXIT_WRONG_USAGE = 2 };

constexpr char app_footer[] =
    "Exit status: 0 done, 1 something is wrong, as told, 2 wrong usage.\n"
    "Try vrk-build WORD --help. The manual page vrk-build(1) tells more.";

constexpr char keygen_footer[] =
    "The subject is ASCII text without slash, plus sign and backslash in its values. Neither file\n"
    "may exist. Keep the key secret; hand out the certificate, which \"pvrm trust\" takes.";

constexpr char pack_footer[] =
    "TREE holds the file package.ldif and the folders that the package needs:\n"
    "  package.ldif  evrkName, evrkVersion, evrkArchitecture (any, i686, x86_64 or mips) and\n"
    "                evrkDescription, and if need be evrkVariant, evrkCreator, and an\n"
    "                evrkDependency for each package needed; a line each, \"evrkName: foo\"\n"
    "  data          the files, as below the root directory\n"
    "  conf          configuration files, likewise, which never replace those of the machine\n"
    "  dump          files that are only kept with the package\n"
    "  init          scripts: 00-add.sh 99-add.sh 99-cfg.sh 00-del.sh 99-del.sh\n"
    "  info          perm.txt, lines path|mode; link.txt, lines directory|target|name\n"
    "The path of the package file is printed.";

constexpr char show_footer[] =
    "Exit status: 0 the signature holds, 1 it doesn't, or the file is no package, 2 wrong usage.";

struct command_line {
    keygen_options keys;
    pack_options packing;
    show_options showing;
};

std::string not_empty(const std::string &value) {
    return value.empty() ? "it is empty" : "";
}

CLI::App *add_keygen(CLI::App &app, keygen_options &keys) {
    CLI::App *word = app.add_subcommand("keygen", "Make a key and a certificate for a subject");
    word->add_option("SUBJECT", keys.subject, "Such as \"/O=My Distribution/CN=Jane\"")->required();
    word->add_option("--key", keys.key_file, "Where the private key goes")
        ->required()
        ->check(not_empty);
    word->add_option("--cert", keys.certificate_file, "Where the certificate goes")
        ->required()
        ->check(not_empty);
    word->add_option("--days", keys.days, "How long the certificate is valid; it ends before 2050")
        ->check(CLI::Range(1, 36500))
        ->capture_default_str();
    word->footer(keygen_footer);
    return word;
}

CLI::App *add_pack(CLI::App &app, pack_options &packing) {
    CLI::App *word = app.add_subcommand("pack", "Turn a source tree into a signed package file");
    word->add_option("TREE", packing.tree, "The source tree, a directory")
        ->required()
        ->check(not_empty);
    word->add_option("--key", packing.key_file, "The signer's private key, RSA")
        ->required()
        ->check(not_empty);
    word->add_option("--cert", packing.certificate_file, "The signer's certificate")
        ->required()
        ->check(not_empty);
    word->add_option("-o,--output", packing.output,
                     "The package file, or a directory for it (else the working directory)")
        ->check(not_empty);
    word->add_flag("--base", packing.base,
                   "Let info/link.txt name directories of the base layout, such as /lib");
    word->footer(pack_footer);
    return word;
}

CLI::App *add_show(CLI::App &app, show_options &showing) {
    CLI::App *word = app.add_subcommand("show", "Show a package file and check its signature");
    word->add_option("FILE", showing.file, "A package file")->required()->check(not_empty);
    CLI::Option *certificate =
        word->add_option("--cert", showing.certificate_file, "Believe this certificate")
            ->check(not_empty);
    word->add_option("--store", showing.store, "Believe the certificates of this store")
        ->check(not_empty)
        ->excludes(certificate)
        ->capture_default_str();
    word->footer(show_footer);
    return word;
}

int run(int argc, char **argv) {
    command_line line;
    CLI::App app("Makes and signs package files.", "vrk-build");
    app.require_subcommand(1);
    app.failure_message([](const CLI::App *, const CLI::Error &error) {
        return "vrk-build: " + terminal_safe_cell(error.what()) + "\nTry: vrk-build --help\n";
    });
    app.footer(app_footer);
    const CLI::App *keygen_word = add_keygen(app, line.keys);
    const CLI::App *pack_word = add_pack(app, line.packing);
    add_show(app, line.showing);
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError &outcome) {
        return app.exit(outcome) == 0 ? EXIT_GOOD : EXIT_WRONG_USAGE;
    }

    // The reader of subjects explains itself there, in words of the package it reads.
    bio_err = BIO_new(BIO_s_null());
    bool good = true;
    if (keygen_word->parsed()) {
        keygen(line.keys);
    } else if (pack_word->parsed()) {
        printf("%s\n", pack(line.packing).c_str());
    } else {
        good = show(line.showing);
    }
    if (fflush(stdout) != 0) {
        throw system_problem("the output can't be written");
    }
    return good ? EXIT_GOOD : EXIT_PROBLEM;
}

}  // namespace

int main(int argc, char **argv) {
    const auto out_of_memory = [] {
        fputs("vrk-build: out of memory\n", stderr);
        return static_cast<int>(EXIT_PROBLEM);
    };
    try {
        return guarded(out_of_memory, [&] { return run(argc, argv); });
    } catch (const std::exception &failure) {
        fflush(stdout);  // what is known of a file stands ahead of what is wrong with it
        fprintf(stderr, "vrk-build: %s\n", terminal_safe_cell(failure.what()).c_str());
    }
    return EXIT_PROBLEM;
}
