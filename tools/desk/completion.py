"""What a completion for bash offers."""

import subprocess

COMPLETE = (
    'source "$1"; function=$2; shift 2; COMP_WORDS=("$@"); COMP_CWORD=$(($# - 1)); "$function"; '
    'printf "%s\\n" "${COMPREPLY[@]}"'
)


def complete(file, *words, folder="/"):
    """The words that the function in `file` offers for the last of `words`, typed in `folder`."""
    function = "_" + file.name.replace("-", "_")
    command = ["bash", "-c", COMPLETE, "-", file, function, *words]
    done = subprocess.run(command, capture_output=True, text=True, check=True, cwd=folder)
    return set(done.stdout.split())
