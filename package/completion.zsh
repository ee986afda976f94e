#compdef farlink
# The script for bash, which zsh can run.
autoload -U +X bashcompinit && bashcompinit
source <(farlink completion bash)
_bash_complete -F _farlink
