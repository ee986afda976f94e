# The script for bash is asked, so that there is one.
function __farlink_words
    set -l words (commandline -opc) (commandline -ct)
    bash -c 'source <(farlink completion bash); COMP_WORDS=("$@"); COMP_CWORD=$(($# - 1))
        _farlink farlink "${!#}"; printf "%s\n" "${COMPREPLY[@]}"' bash $words
end
complete -c farlink -f -a '(__farlink_words)'
complete -c farlink -n '__fish_seen_subcommand_from print' -F
