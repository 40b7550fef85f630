#include "integration/ShellIntegration.h"

#include <cstdlib>

#include "hook/PelmoraPaths.h"
#include "integration/InstallerFiles.h"

namespace pelmora::ShellIntegration {
namespace {

std::string_view withoutCarriageReturn(std::string_view line) {
    return line.ends_with('\r') ? line.substr(0, line.size() - 1) : line;
}

std::vector<std::string_view> lines(std::string_view text) {
    std::vector<std::string_view> result;
    for (;;) {
        const std::size_t end = text.find('\n');
        result.push_back(text.substr(0, end));
        if (end == std::string_view::npos) {
            return result;
        }
        text.remove_prefix(end + 1);
    }
}

// The script. @CLI@ is the quoted command, @MIN@ the threshold in seconds.
// Everything it starts runs in the background, disowned, with its output
// thrown away: the prompt must never wait for it or show a job line.
constexpr std::string_view scriptTemplate =
    R"zsh(# Managed by Pelmora. Turn it off in Pelmora's settings; do not edit.
[[ -o interactive ]] || return 0
[[ -f @CLI@ && -x @CLI@ ]] || return 0
zmodload zsh/datetime 2>/dev/null || return 0

typeset -g _pelmora_cmd='' _pelmora_start='' _pelmora_job=''
typeset -gi _pelmora_min=@MIN@

_pelmora_preexec() {
  emulate -L zsh
  _pelmora_cmd=$1
  _pelmora_start=$EPOCHSECONDS
  { sleep $_pelmora_min && @CLI@ shell start --pid $$ --start $_pelmora_start --cwd "$PWD" -- "$_pelmora_cmd" } </dev/null &>/dev/null &!
  _pelmora_job=$!
}

_pelmora_precmd() {
  local exit_status=$?
  emulate -L zsh
  # A command shorter than the threshold never reports a start.
  if [[ -n $_pelmora_job ]]; then
    kill $_pelmora_job 2>/dev/null
    _pelmora_job=''
  fi
  # A command that ran long enough, or a git command that failed however fast: the pelmora command decides.
  if [[ -n $_pelmora_cmd ]]; then
    if (( EPOCHSECONDS - _pelmora_start >= _pelmora_min )) ||
       { (( exit_status != 0 )) && [[ $_pelmora_cmd == (git|*\ git)\ * ]] }; then
      @CLI@ shell end --pid $$ --start $_pelmora_start --exit $exit_status --cwd "$PWD" -- "$_pelmora_cmd" </dev/null &>/dev/null &!
    fi
  fi
  _pelmora_cmd=''
  return $exit_status
}

_pelmora_zshexit() {
  [[ -n $_pelmora_job ]] && kill $_pelmora_job 2>/dev/null
  return 0
}

# Sourcing the script again must not register the hooks twice. The precmd
# hook goes first so that it reads the command's own exit status.
preexec_functions=(${preexec_functions:#_pelmora_preexec} _pelmora_preexec)
zshexit_functions=(${zshexit_functions:#_pelmora_zshexit} _pelmora_zshexit)
precmd_functions=(_pelmora_precmd ${precmd_functions:#_pelmora_precmd})
)zsh";

void replaceAll(std::string& text, std::string_view from, std::string_view to) {
    for (std::size_t at = text.find(from); at != std::string::npos;
         at = text.find(from, at + to.size())) {
        text.replace(at, from.size(), to);
    }
}

} // namespace

std::filesystem::path scriptURL() {
    return PelmoraPaths::supportDirectory() / "shell" / "pelmora.zsh";
}

std::filesystem::path zshrcURL(const std::filesystem::path& home) {
    const char* zdotdir = std::getenv("ZDOTDIR");
    return (zdotdir != nullptr && zdotdir[0] != '\0' ? std::filesystem::path(zdotdir) : home) /
           ".zshrc";
}

std::filesystem::path zshrcURL() {
    return zshrcURL(PelmoraPaths::home());
}

std::string script(std::string_view cli, int minSeconds) {
    std::string text(scriptTemplate);
    replaceAll(text, "@MIN@", std::to_string(minSeconds));
    replaceAll(text, "@CLI@", InstallerFiles::shellQuoted(cli));
    return text;
}

std::string installing(std::string_view rcText, const std::filesystem::path& script) {
    std::string text(rcText);
    if (text.find(beginMarker) != std::string::npos) {
        return text;
    }
    if (!text.empty() && !text.ends_with('\n')) {
        text += '\n';
    }
    const std::string quoted = InstallerFiles::shellQuoted(script.string());
    text += beginMarker;
    text += "\n[ -f " + quoted + " ] && source " + quoted + "\n";
    text += endMarker;
    text += '\n';
    return text;
}

std::string removing(std::string_view rcText) {
    const std::vector<std::string_view> all = lines(rcText);
    std::vector<std::string_view> kept;
    for (std::size_t index = 0; index < all.size(); ++index) {
        if (withoutCarriageReturn(all[index]) == beginMarker) {
            std::size_t end = index + 1;
            while (end < all.size() && withoutCarriageReturn(all[end]) != endMarker) {
                ++end;
            }
            if (end < all.size()) {
                index = end;
                continue;
            }
        }
        kept.push_back(all[index]);
    }
    std::string text;
    for (std::size_t index = 0; index < kept.size(); ++index) {
        if (index > 0) {
            text += '\n';
        }
        text += kept[index];
    }
    return text;
}

std::vector<FileEdit> planInstall(std::string_view cli, int minSeconds,
                                  const std::filesystem::path& rc,
                                  const std::filesystem::path& script) {
    std::optional<std::string> current = InstallerFiles::readText(rc);
    FileEdit rcChange{rc, current, installing(current.value_or(""), script),
                      FileEdit::Backup::startupFile};
    if (current && current->find(beginMarker) != std::string::npos) {
        rcChange.after = current;
    }
    return {{script, InstallerFiles::readText(script), ShellIntegration::script(cli, minSeconds)},
            std::move(rcChange)};
}

FileEdit planRemove(const std::filesystem::path& rc) {
    std::optional<std::string> current = InstallerFiles::readText(rc);
    FileEdit change{rc, current, current, FileEdit::Backup::startupFile};
    if (current && current->find(beginMarker) != std::string::npos) {
        change.after = removing(*current);
    }
    return change;
}

void install(std::string_view cli, int minSeconds, const std::filesystem::path& rc,
             const std::filesystem::path& script, BackupRun& run) {
    applyChanges(planInstall(cli, minSeconds, rc, script), run);
}

void remove(const std::filesystem::path& rc, BackupRun& run) {
    applyChanges({planRemove(rc)}, run);
}

void install(std::string_view cli, int minSeconds, const std::filesystem::path& rc,
             const std::filesystem::path& script) {
    BackupRun run = BackupRun::current();
    ShellIntegration::install(cli, minSeconds, rc, script, run);
}

void remove(const std::filesystem::path& rc) {
    BackupRun run = BackupRun::current();
    ShellIntegration::remove(rc, run);
}

bool isInstalled(const std::filesystem::path& rc) {
    try {
        std::optional<std::string> text = InstallerFiles::readText(rc);
        return text && text->find(beginMarker) != std::string::npos;
    } catch (const std::exception&) {
        return false;
    }
}

} // namespace pelmora::ShellIntegration
