#include "integration/ShellCommandFilter.h"

#include <algorithm>
#include <array>

#include "support/Ascii.h"
#include "support/Scanner.h"

namespace pelmora::ShellCommandFilter {
namespace {

using Words = std::vector<std::string>;

// ---- Reading the command line -----------------------------------------------

bool isOperatorChar(char c) {
    return c == ';' || c == '&' || c == '|' || c == '(' || c == ')' || c == '\n';
}

// A shell-like reading, good enough to find programs and their arguments; it
// never fails, whatever the line holds.
class Lexer {
public:
    explicit Lexer(std::string_view line) : in_(line) {}

    std::vector<Words> run() {
        while (!in_.atEnd()) {
            step();
        }
        endCommand();
        return std::move(commands_);
    }

private:
    void step() {
        const char c = in_.peek();
        if (Ascii::isBlank(c) || c == '\r') {
            in_.consume();
            endWord();
        } else if (c == '#' && !inWord_) {
            in_.takeUntil('\n');
        } else if (c == '<' || c == '>' || (c == '&' && in_.peek(1) == '>')) {
            redirection();
        } else if (isOperatorChar(c)) {
            in_.consume();
            endCommand();
        } else {
            wordCharacter();
        }
    }

    void wordCharacter() {
        inWord_ = true;
        const char c = in_.consume();
        if (c == '\'') {
            word_ += in_.takeUntil('\'');
            in_.consume('\'');
        } else if (c == '"') {
            while (!in_.atEnd() && in_.peek() != '"') {
                if (in_.peek() == '\\' && in_.peek(1) != '\0') {
                    in_.consume();
                }
                word_ += in_.consume();
            }
            in_.consume('"');
        } else if (c == '\\') {
            if (in_.peek() == '\n') {
                in_.consume();
            } else if (!in_.atEnd()) {
                word_ += in_.consume();
            }
        } else if (c == '$' && in_.peek() == '(') {
            // A substitution stays one word, whatever it holds.
            int depth = 0;
            word_ += c;
            do {
                const char inner = in_.consume();
                depth += inner == '(' ? 1 : inner == ')' ? -1 : 0;
                word_ += inner;
            } while (depth > 0 && !in_.atEnd());
        } else if (c == '`') {
            word_ += c;
            word_ += in_.takeUntil('`');
            in_.consume('`');
        } else {
            word_ += c;
        }
    }

    // `2>&1`, `>> log`, `&> /dev/null`, `< in`: neither the operator nor its
    // target is a word of the command.
    void redirection() {
        const bool fdNumber =
            inWord_ && !word_.empty() && std::all_of(word_.begin(), word_.end(), Ascii::isDigit);
        if (fdNumber) {
            word_.clear();
            inWord_ = false;
        }
        endWord();
        in_.consume('&');
        in_.skipWhile([](char c) { return c == '<' || c == '>'; });
        if (in_.consume('&')) {
            if (in_.consume('-') || !in_.takeWhile(Ascii::isDigit).empty()) {
                return;
            }
        }
        in_.consume('|');
        in_.consume('!');
        dropNextWord_ = true;
    }

    void endWord() {
        if (!inWord_) {
            return;
        }
        if (dropNextWord_) {
            dropNextWord_ = false;
        } else {
            words_.push_back(std::move(word_));
        }
        word_.clear();
        inWord_ = false;
    }

    void endCommand() {
        endWord();
        dropNextWord_ = false;
        if (!words_.empty()) {
            commands_.push_back(std::move(words_));
        }
        words_.clear();
    }

    Scanner in_;
    std::string word_;
    bool inWord_ = false;
    bool dropNextWord_ = false;
    Words words_;
    std::vector<Words> commands_;
};

// ---- Tables -----------------------------------------------------------------

// Whether `word` is one of the blank-separated names of `list`.
bool among(std::string_view word, std::string_view list) {
    while (!list.empty()) {
        const std::size_t end = list.find(' ');
        if (list.substr(0, end) == word) {
            return true;
        }
        if (end == std::string_view::npos) {
            break;
        }
        list.remove_prefix(end + 1);
    }
    return false;
}

// What the user is looking at anyway, or what does not end by itself.
constexpr std::string_view agents =
    "claude codex grok devin qwen copilot pi kimi kimi-code commandcode cursor-agent aider "
    "gemini opencode amp goose crush";
constexpr std::string_view editors =
    "vi vim nvim view vimdiff nvimdiff gvim mvim nano pico emacs emacsclient micro hx helix kak "
    "ed ex joe mg ne subl code cursor zed mate";
constexpr std::string_view screens =
    "less more most man info bat pager tldr w3m lynx links top htop btop atop glances nvtop "
    "iotop iftop nethogs ncdu ranger nnn lf mc vifm yazi tig lazygit lazydocker gitui k9s fzf "
    "sk watch entr mutt neomutt newsboat weechat irssi cmus";
constexpr std::string_view shells =
    "sh bash zsh fish dash ksh mksh tcsh csh nu xonsh pwsh elvish su login script tmux screen "
    "zellij byobu abduco dtach asciinema ssh mosh telnet sftp ftp lftp et autossh rlogin";
constexpr std::string_view clients =
    "psql mysql mariadb mongo mongosh redis-cli sqlite3 cqlsh gdb lldb irb pry ipython bpython "
    "ptpython ghci utop jshell bc dc";
// Interpreters are REPLs when given nothing to run.
constexpr std::string_view interpreters =
    "python python2 python3 pypy pypy3 node deno bun ruby php lua luajit R julia scala iex erl "
    "clj clojure racket guile sbcl ocaml swipl kotlinc swift perl";
constexpr std::string_view servers =
    "nodemon watchexec air reflex ngrok http-server live-server serve browser-sync "
    "webpack-dev-server uvicorn gunicorn hypercorn daphne jupyter jupyter-lab jupyter-notebook "
    "streamlit tensorboard mitmproxy mitmweb tcpdump tshark yes stern "
    "redis-server mongod postgres";
// Commands that never take long enough to matter, and exit 1 to say "no".
constexpr std::string_view trivialCommands =
    "cd pushd popd export unset source . alias echo printf true false clear set setopt unsetopt "
    "exit history fc which type pwd sleep";
constexpr std::string_view queries = "grep egrep fgrep rg ag ack diff cmp colordiff test [ pgrep";

enum class Action {
    passOver,
    trivial,
    git,
    deploy,
    test,
    build,
    install,
    command,
    // Decided by the name of a script or target: `npm run <name>` (the
    // second word), `yarn <name>` (the first), `make <targets>` (any).
    scriptAfter,
    scriptFirst,
    targetsOrBuild,
    targetsOrCommand,
};

// A program and the first word after its options, as in `kubectl apply`.
// `words` lists the first words that match, blank-separated; "-" stands for
// none at all, "*" for anything; with "any:" in front, the words match
// anywhere among the arguments (`gcloud run deploy`).
struct Rule {
    constexpr Rule(std::string_view names, std::string_view first, Action chosen,
                   std::string_view goesTo = {})
        : programs(names), words(first), action(chosen), provider(goesTo) {}
    std::string_view programs;
    std::string_view words;
    Action action;
    std::string_view provider;
};

constexpr std::array rules = {
    // Deploys, each to its provider. A few agents share a name with a
    // deploy tool (AWS Copilot), so deploys come first.
    Rule{"vercel", "- deploy", Action::deploy, "Vercel"},
    Rule{"vercel netlify wrangler", "dev", Action::passOver},
    Rule{"vercel netlify", "build", Action::build},
    Rule{"netlify", "deploy", Action::deploy, "Netlify"},
    Rule{"fly flyctl", "deploy launch", Action::deploy, "Fly.io"},
    Rule{"railway", "up deploy redeploy", Action::deploy, "Railway"},
    Rule{"firebase", "deploy", Action::deploy, "Firebase"},
    Rule{"firebase", "serve emulators:start", Action::passOver},
    Rule{"wrangler", "any:deploy publish", Action::deploy, "Cloudflare"},
    Rule{"kubectl", "apply create replace rollout set scale patch", Action::deploy, "Kubernetes"},
    Rule{"kubectl", "port-forward proxy attach exec edit", Action::passOver},
    Rule{"helm", "install upgrade rollback", Action::deploy, "Kubernetes"},
    Rule{"terraform tofu", "apply destroy", Action::deploy, "Terraform"},
    Rule{"terraform tofu", "init", Action::install},
    Rule{"pulumi", "up destroy", Action::deploy, "Pulumi"},
    Rule{"cdk sam eb", "deploy", Action::deploy, "AWS"},
    Rule{"copilot", "any:deploy", Action::deploy, "AWS"},
    Rule{"aws", "any:deploy update-function-code update-service create-deployment", Action::deploy,
         "AWS"},
    Rule{"aws", "any:start-session", Action::passOver},
    Rule{"gcloud", "any:deploy", Action::deploy, "Google Cloud"},
    Rule{"gcloud", "any:ssh", Action::passOver},
    Rule{"az", "any:deploy deployment up", Action::deploy, "Azure"},
    Rule{"func", "any:publish", Action::deploy, "Azure"},
    Rule{"heroku", "any:deploy container:release releases:rollback", Action::deploy, "Heroku"},
    Rule{"heroku", "run logs", Action::passOver},
    Rule{"serverless sls", "deploy", Action::deploy, "Serverless"},
    Rule{"kamal", "deploy redeploy setup rollback", Action::deploy, "Kamal"},
    Rule{"cap", "any:deploy", Action::deploy, "Capistrano"},
    Rule{"surge", "*", Action::deploy, "Surge"},
    Rule{"gh-pages", "*", Action::deploy, "GitHub Pages"},
    Rule{"eas", "submit update", Action::deploy, "Expo"},
    Rule{"eas", "build", Action::build},
    Rule{"npm pnpm yarn", "publish", Action::deploy, "npm"},
    Rule{"cargo", "publish", Action::deploy, "crates.io"},
    Rule{"twine", "upload", Action::deploy, "PyPI"},
    Rule{"uv poetry hatch", "publish", Action::deploy, "PyPI"},
    Rule{"gem", "push", Action::deploy, "RubyGems"},
    Rule{"docker podman docker-compose", "push", Action::deploy, "Docker"},

    // JavaScript.
    Rule{"npm", "test t tst", Action::test},
    Rule{"npm", "install i ci add update upgrade uninstall", Action::install},
    Rule{"npm", "run run-script", Action::scriptAfter},
    Rule{"npm", "start", Action::passOver},
    Rule{"yarn", "- install add upgrade remove", Action::install},
    Rule{"yarn", "run", Action::scriptAfter},
    Rule{"yarn", "*", Action::scriptFirst},
    Rule{"pnpm", "install i add update up remove", Action::install},
    Rule{"pnpm", "run", Action::scriptAfter},
    Rule{"pnpm", "*", Action::scriptFirst},
    Rule{"bun", "install i add update remove", Action::install},
    Rule{"bun", "test", Action::test},
    Rule{"bun", "build", Action::build},
    Rule{"bun deno", "run task", Action::scriptAfter},
    Rule{"deno", "test", Action::test},
    Rule{"deno", "compile", Action::build},
    Rule{"deno", "install", Action::install},
    Rule{"vitest", "run", Action::test},
    Rule{"vitest", "*", Action::passOver},
    Rule{"jest mocha ava tap karma pytest py.test tox nox rspec phpunit pest ctest bats behave "
         "cucumber cucumber-js",
         "*", Action::test},
    Rule{"playwright", "test", Action::test},
    Rule{"cypress", "run", Action::test},
    Rule{"cypress", "open", Action::passOver},
    Rule{"webpack", "serve", Action::passOver},
    Rule{"tsc webpack rollup esbuild parcel swc babel", "*", Action::build},
    Rule{"vite next nuxt astro remix gatsby ng react-scripts vue-cli-service", "build",
         Action::build},
    Rule{"ng react-scripts vue-cli-service", "test", Action::test},
    Rule{"vite next nuxt astro remix gatsby ng react-scripts vue-cli-service", "*",
         Action::passOver},

    // Python and Ruby.
    Rule{"pip pip3", "install uninstall download", Action::install},
    Rule{"uv", "sync add lock remove pip", Action::install},
    Rule{"uv poetry hatch", "build", Action::build},
    Rule{"hatch", "test", Action::test},
    Rule{"poetry", "install add update lock remove", Action::install},
    Rule{"pipenv", "install sync update", Action::install},
    Rule{"conda mamba micromamba", "install create update env", Action::install},
    Rule{"http.server flask", "*", Action::passOver},
    Rule{"artisan", "serve tinker", Action::passOver},
    Rule{"artisan", "test", Action::test},
    Rule{"manage.py", "runserver shell dbshell", Action::passOver},
    Rule{"manage.py", "test", Action::test},
    Rule{"bundle", "- install update", Action::install},
    Rule{"gem", "install update", Action::install},
    Rule{"gem", "build", Action::build},
    Rule{"rails", "server s console c dbconsole", Action::passOver},
    Rule{"rails", "test", Action::test},
    Rule{"rake", "*", Action::targetsOrBuild},

    // Compiled languages and their build tools.
    Rule{"cargo", "build b check clippy doc", Action::build},
    Rule{"cargo", "test t nextest bench", Action::test},
    Rule{"cargo", "install update fetch add", Action::install},
    Rule{"cargo dotnet", "watch", Action::passOver},
    Rule{"go", "build generate vet", Action::build},
    Rule{"go", "test", Action::test},
    Rule{"go", "install get mod", Action::install},
    Rule{"swift", "build", Action::build},
    Rule{"swift", "test", Action::test},
    Rule{"swift", "package", Action::install},
    Rule{"xcodebuild mvn mvnw gradle gradlew", "any:test verify check", Action::test},
    Rule{"xcodebuild mvn mvnw gradle gradlew cmake", "*", Action::build},
    Rule{"dotnet", "build publish pack", Action::build},
    Rule{"dotnet", "test", Action::test},
    Rule{"dotnet", "restore add", Action::install},
    Rule{"bazel bazelisk", "test coverage", Action::test},
    Rule{"bazel bazelisk", "build", Action::build},
    Rule{"mix", "test", Action::test},
    Rule{"mix", "compile release", Action::build},
    Rule{"mix", "deps.get", Action::install},
    Rule{"mix", "phx.server", Action::passOver},
    Rule{"stack cabal", "test", Action::test},
    Rule{"stack cabal", "build", Action::build},
    Rule{"cabal", "install update", Action::install},
    Rule{"meson", "test", Action::test},
    Rule{"meson", "compile setup", Action::build},
    Rule{"zig", "build", Action::targetsOrBuild},
    Rule{"flutter dart", "test", Action::test},
    Rule{"flutter dart", "build compile", Action::build},
    Rule{"flutter dart", "pub", Action::install},
    Rule{"flutter", "run", Action::passOver},
    Rule{"elm", "make", Action::build},
    Rule{"make gmake ninja scons", "*", Action::targetsOrBuild},
    Rule{"just task mage invoke nx turbo lerna", "*", Action::targetsOrCommand},
    Rule{"gcc g++ cc c++ clang clang++ rustc javac scalac ghc swiftc nvcc latexmk pdflatex "
         "xelatex lualatex",
         "*", Action::build},
    Rule{"docker podman docker-compose", "build buildx", Action::build},
    Rule{"docker podman docker-compose", "pull", Action::install},
    Rule{"docker podman", "attach stats events", Action::passOver},
    Rule{"docker-compose", "run exec attach", Action::passOver},
    Rule{"nix", "build", Action::build},
    Rule{"nix", "develop shell repl", Action::passOver},
    Rule{"nix-build", "*", Action::build},
    Rule{"nix-shell", "*", Action::passOver},

    // System and language package managers.
    Rule{"brew", "install upgrade update reinstall bundle tap", Action::install},
    Rule{"port", "install upgrade selfupdate", Action::install},
    Rule{"apt apt-get aptitude dnf yum zypper apk",
         "install upgrade update dist-upgrade full-upgrade add remove purge", Action::install},
    Rule{"pacman yay paru nix-env softwareupdate carthage", "*", Action::install},
    Rule{"composer", "install update require", Action::install},
    Rule{"pod", "install update", Action::install},
    Rule{"mas", "install upgrade", Action::install},
    Rule{"rustup", "update install toolchain", Action::install},
    Rule{"nvm pyenv rbenv asdf mise volta sdk opam fnm", "install", Action::install},
};

// ---- Reading one simple command ------------------------------------------------

std::string baseName(std::string_view word) {
    const std::size_t slash = word.rfind('/');
    return std::string(slash == std::string_view::npos ? word : word.substr(slash + 1));
}

bool isAssignment(std::string_view word) {
    const std::size_t equals = word.find('=');
    if (equals == 0 || equals == std::string_view::npos ||
        !(Ascii::isAlpha(word[0]) || word[0] == '_')) {
        return false;
    }
    return std::all_of(word.begin(), word.begin() + static_cast<std::ptrdiff_t>(equals),
                       [](char c) { return Ascii::isAlnum(c) || c == '_'; });
}

// Drops what stands before the real program: assignments, and wrappers
// that run the rest (sudo, env, time, npx, bundle exec, python -m, ...).
void skipWrappers(Words& words) {
    std::size_t at = 0;
    auto skipOptions = [&](std::string_view takesValue) {
        while (at < words.size() && words[at].starts_with('-') && words[at] != "--") {
            at += among(words[at], takesValue) ? 2 : 1;
        }
        if (at < words.size() && words[at] == "--") {
            ++at;
        }
    };
    for (bool more = true; more && at < words.size();) {
        const std::string name = baseName(words[at]);
        more = true;
        if (isAssignment(words[at])) {
            ++at;
        } else if (among(name, "sudo doas")) {
            ++at;
            skipOptions("-u -g -h -p -C -U -D -r -t");
        } else if (among(name, "env")) {
            ++at;
            skipOptions("-u -C -S");
        } else if (among(name, "time nohup command builtin exec noglob nocorrect nice ionice "
                               "caffeinate xcrun npx pnpx bunx uvx")) {
            ++at;
            skipOptions("-n -c -p -t --package");
        } else if (name == "timeout" && at + 1 < words.size()) {
            at += 2;
        } else if ((among(name, "bundle poetry pipenv uv pdm hatch rye") && at + 1 < words.size() &&
                    among(words[at + 1], "exec run")) ||
                   (among(name, "pnpm yarn") && at + 1 < words.size() && words[at + 1] == "dlx") ||
                   (name == "npm" && at + 1 < words.size() && words[at + 1] == "exec")) {
            at += 2;
            skipOptions("");
        } else if (among(name, "dotenv op doppler infisical aws-vault") &&
                   std::find(words.begin() + static_cast<std::ptrdiff_t>(at), words.end(), "--") !=
                       words.end()) {
            at = static_cast<std::size_t>(
                     std::find(words.begin() + static_cast<std::ptrdiff_t>(at), words.end(), "--") -
                     words.begin()) +
                 1;
        } else if (among(name, interpreters) && at + 2 < words.size() && words[at + 1] == "-m") {
            at += 2; // python -m pytest: the module is the program
        } else if (among(name, interpreters) && at + 1 < words.size() &&
                   !words[at + 1].starts_with('-') &&
                   words[at + 1].find_first_of("./") != std::string::npos) {
            ++at; // python manage.py runserver: the script is the program
        } else {
            more = false;
        }
    }
    words.erase(words.begin(), words.begin() + static_cast<std::ptrdiff_t>(at));
}

bool hasWord(const Words& words, std::string_view list) {
    return std::any_of(words.begin() + 1, words.end(),
                       [&](const std::string& word) { return among(word, list); });
}

Words positionals(const Words& words) {
    Words result;
    for (std::size_t at = 1; at < words.size(); ++at) {
        if (!words[at].starts_with('-') && !isAssignment(words[at])) {
            result.push_back(words[at]);
        }
    }
    return result;
}

// The kind a script or target name suggests: "deploy:prod", "test:e2e",
// "build", "watch". Watching and serving win over the rest ("build:watch"
// never ends); "dev" and "start" lose to it ("build:dev" is a build).
std::optional<Action> byName(std::string_view name) {
    std::vector<std::string> parts;
    std::string part;
    for (char c : name) {
        if (Ascii::isAlnum(c)) {
            part += Ascii::toLower(c);
        } else if (!part.empty()) {
            parts.push_back(std::move(part));
            part.clear();
        }
    }
    if (!part.empty()) {
        parts.push_back(std::move(part));
    }
    auto any = [&](std::string_view list) {
        return std::any_of(parts.begin(), parts.end(),
                           [&](const std::string& p) { return among(p, list); });
    };
    if (any("watch serve server storybook preview")) {
        return Action::passOver;
    }
    if (any("deploy release publish ship")) {
        return Action::deploy;
    }
    if (any("test tests spec specs e2e check lint typecheck ci")) {
        return Action::test;
    }
    if (any("build compile bundle dist package all")) {
        return Action::build;
    }
    if (any("install setup bootstrap deps")) {
        return Action::install;
    }
    if (any("dev start")) {
        return Action::passOver;
    }
    return std::nullopt;
}

bool ruleMatches(const Rule& rule, const std::string& program, const Words& args) {
    if (!among(program, rule.programs)) {
        return false;
    }
    std::string_view words = rule.words;
    if (words.starts_with("any:")) {
        words.remove_prefix(4);
        return std::any_of(args.begin(), args.end(),
                           [&](const std::string& arg) { return among(arg, words); });
    }
    if (words == "*") {
        return true;
    }
    return args.empty() ? among("-", words) : among(args.front(), words);
}

struct Reading {
    Reading(Action chosen, std::string_view goesTo = {}, std::string subcommand = {})
        : action(chosen), provider(goesTo), gitCommand(std::move(subcommand)) {}
    Action action;
    std::string_view provider;
    std::string gitCommand;
};

Reading readGit(const Words& words);

// `words` without wrappers.
Reading read(const Words& words) {
    if (words.empty()) {
        return {Action::trivial};
    }
    std::string program = baseName(words.front());
    Words args = positionals(words);
    if (among(program, "docker podman") && !args.empty() && args.front() == "compose") {
        program = "docker-compose";
        args.erase(args.begin());
    }
    if (program == "git") {
        return readGit(words);
    }
    if (hasWord(words, "--watch --watchAll --serve") ||
        (program == "tsc" && hasWord(words, "-w")) ||
        (among(program, "tail journalctl dmesg") && hasWord(words, "-f -F --follow -w")) ||
        (among(program, "kubectl docker docker-compose stern") && !args.empty() &&
         among(args.front(), "logs get") && hasWord(words, "-f --follow -w")) ||
        (program == "ping" && !hasWord(words, "-c")) ||
        (among(program, "docker podman") && !args.empty() && among(args.front(), "run exec") &&
         hasWord(words, "-it -ti -i -t --interactive --tty")) ||
        (among(program, "docker docker-compose podman") &&
         std::find(args.begin(), args.end(), "up") != args.end() &&
         !hasWord(words, "-d --detach"))) {
        return {Action::passOver};
    }
    if (program == "vitest" && hasWord(words, "--run")) {
        return {Action::test};
    }
    for (const Rule& rule : rules) {
        if (ruleMatches(rule, program, args)) {
            return {rule.action, rule.provider};
        }
    }
    if (among(program, agents) || among(program, editors) || among(program, screens) ||
        among(program, shells) || among(program, clients) || among(program, servers)) {
        return {Action::passOver};
    }
    if (among(program, interpreters)) {
        // Given nothing to run (or -i), an interpreter is a REPL.
        const bool runsSomething = !args.empty() || hasWord(words, "-c -e -m -p --eval --print");
        return {runsSomething && !hasWord(words, "-i") ? Action::command : Action::passOver};
    }
    if (among(program, trivialCommands)) {
        return {Action::trivial};
    }
    // A script of the project's (./build.sh, scripts/deploy, bin/dev) says
    // what it is by its name.
    if (words.front().find('/') != std::string::npos) {
        return {byName(program).value_or(Action::command)};
    }
    return {Action::command};
}

constexpr std::string_view gitPagers = "log show diff blame shortlog reflog whatchanged help grep "
                                       "mergetool difftool";
constexpr std::string_view gitQueries = "grep diff diff-index diff-files config check-ignore "
                                        "check-attr merge-base rev-parse show-ref ls-files "
                                        "ls-remote symbolic-ref cat-file";

Reading readGit(const Words& words) {
    // Past git's own options (-C dir, -c name=value, --no-pager, ...).
    std::size_t at = 1;
    while (at < words.size() && words[at].starts_with('-')) {
        at += among(words[at], "-C -c --git-dir --work-tree --namespace") ? 2 : 1;
    }
    Reading reading{Action::git, {}, at < words.size() ? words[at] : std::string()};
    const Words rest(words.begin() + static_cast<std::ptrdiff_t>(std::min(at, words.size())),
                     words.end());
    const Words args = positionals(rest);
    if (reading.gitCommand == "push" && args.size() > 0 && among(args.front(), "heroku dokku")) {
        reading.provider = args.front() == "heroku" ? "Heroku" : "Dokku";
    }
    return reading;
}

// A git command that waits for the user: a pager, or an editor for a message.
bool gitWaitsForUser(const Words& words, const std::string& command) {
    if (among(command, gitPagers)) {
        return true;
    }
    if (among(command, "add stash checkout reset restore") && hasWord(words, "-p --patch -i")) {
        return true;
    }
    if (command == "rebase") {
        return hasWord(words, "-i --interactive");
    }
    if (among(command, "commit merge tag")) {
        const bool hasMessage = std::any_of(words.begin(), words.end(), [](const std::string& w) {
            return w.starts_with("-m") || w.starts_with("--message") || w.starts_with("-F") ||
                   w.starts_with("--file") || among(w, "-C --no-edit --fixup") ||
                   (w.starts_with("-") && !w.starts_with("--") && w.find('m') != std::string::npos);
        });
        return command == "tag" ? hasWord(words, "-a -s --annotate --sign") && !hasMessage
                                : !hasMessage;
    }
    return false;
}

std::string capitalised(std::string word) {
    if (word.size() > 10) {
        word.resize(10);
    }
    if (!word.empty()) {
        word[0] = static_cast<char>(Ascii::isLower(word[0]) ? word[0] - 'a' + 'A' : word[0]);
    }
    return word;
}

// The strongest reading wins: a line that deploys is a deploy, whatever
// else it does first; a build that starts with `git pull` is a build.
int strength(Action action) {
    switch (action) {
    case Action::deploy:
        return 6;
    case Action::test:
        return 5;
    case Action::build:
        return 4;
    case Action::install:
        return 3;
    case Action::git:
        return 2;
    case Action::command:
        return 1;
    default:
        return 0;
    }
}

struct LineReading {
    bool passOver = false;
    bool waitsForUser = false; // git with a pager or an editor
    bool query = false;        // exit status 1 answers "no"
    Verdict verdict;
};

std::optional<LineReading> readLine(std::string_view commandLine) {
    LineReading line;
    int best = 0;
    for (Words& words : simpleCommands(commandLine)) {
        skipWrappers(words);
        const Words& original = words;
        const Reading reading = read(words);
        Action action = reading.action;
        if (action == Action::scriptAfter || action == Action::scriptFirst ||
            action == Action::targetsOrBuild || action == Action::targetsOrCommand) {
            const Words args = positionals(original);
            std::optional<Action> named;
            if (action == Action::scriptAfter || action == Action::scriptFirst) {
                const std::size_t index = action == Action::scriptAfter ? 1 : 0;
                named = index < args.size() ? byName(args[index]) : std::nullopt;
            } else {
                for (const std::string& target : args) {
                    named = named ? named : byName(target);
                }
            }
            action =
                named.value_or(action == Action::targetsOrBuild ? Action::build : Action::command);
        }
        if (action == Action::passOver) {
            return std::nullopt;
        }
        if (action == Action::trivial) {
            continue;
        }
        if (action == Action::git) {
            line.waitsForUser = line.waitsForUser || gitWaitsForUser(original, reading.gitCommand);
        }
        const bool query = action == Action::git
                               ? among(reading.gitCommand, gitQueries)
                               : among(baseName(original.front()), queries) ||
                                     (original.size() > 1 && among(original[1], queries));
        const bool deploys = action == Action::deploy || !reading.provider.empty();
        const int power = deploys ? strength(Action::deploy) : strength(action);
        if (power < best || (power == best && action != Action::git)) {
            continue;
        }
        best = power;
        line.query = query;
        Verdict& verdict = line.verdict;
        verdict.source = action == Action::git ? Source::git : Source::build;
        verdict.provider =
            reading.provider.empty() ? std::nullopt : std::optional<std::string>(reading.provider);
        verdict.kind = deploys                     ? Kind::deploy
                       : action == Action::git     ? Kind::git
                       : action == Action::test    ? Kind::test
                       : action == Action::build   ? Kind::build
                       : action == Action::install ? Kind::install
                                                   : Kind::command;
        verdict.tool = verdict.kind == Kind::deploy    ? "Deploy"
                       : verdict.kind == Kind::test    ? "Test"
                       : verdict.kind == Kind::build   ? "Build"
                       : verdict.kind == Kind::install ? "Install"
                       : verdict.kind == Kind::command ? "Run"
                       : reading.gitCommand.empty()    ? "Git"
                                                       : capitalised(reading.gitCommand);
    }
    if (best == 0) {
        return std::nullopt;
    }
    return line;
}

bool interrupted(int exitStatus) {
    // SIGINT, SIGQUIT, SIGKILL, SIGTERM: the user stopped it.
    return exitStatus == 130 || exitStatus == 131 || exitStatus == 137 || exitStatus == 143;
}

} // namespace

std::string_view rawValue(Kind kind) {
    switch (kind) {
    case Kind::git:
        return "git";
    case Kind::deploy:
        return "deploy";
    case Kind::test:
        return "test";
    case Kind::build:
        return "build";
    case Kind::install:
        return "install";
    case Kind::command:
        return "command";
    }
    return "command";
}

std::vector<std::vector<std::string>> simpleCommands(std::string_view commandLine) {
    return Lexer(commandLine).run();
}

std::optional<Verdict> onStart(std::string_view commandLine) {
    std::optional<LineReading> line = readLine(commandLine);
    if (!line || line->waitsForUser) {
        return std::nullopt;
    }
    return line->verdict;
}

std::optional<Ending> onEnd(std::string_view commandLine, int exitStatus) {
    std::optional<LineReading> line = readLine(commandLine);
    if (!line) {
        return std::nullopt;
    }
    Ending ending{line->verdict, SessionState::failed};
    if (interrupted(exitStatus) || (exitStatus == 1 && line->query) ||
        (exitStatus == 0 && line->waitsForUser)) {
        ending.state = SessionState::ended;
    } else if (exitStatus == 0) {
        ending.state = SessionState::done;
    }
    return ending;
}

} // namespace pelmora::ShellCommandFilter
