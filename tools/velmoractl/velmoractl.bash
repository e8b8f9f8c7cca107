# bash completion for velmoractl: subcommands, their options, key names.
_velmoractl()
{
    local cur=${COMP_WORDS[COMP_CWORD]} command="" word
    for word in "${COMP_WORDS[@]:1:COMP_CWORD-1}"; do
        case $word in -*) ;; *) command=$word; break ;; esac
    done
    local words
    case $command in
        "") words="--endpoint --json --help launch windows focus state terminate params key services packages
                   package install remove notify watch call" ;;
        launch) words="--parameters --session --help" ;;
        windows) words="--session --help" ;;
        focus) words="--release --help" ;;
        packages) words="--group --extended --manifest --help" ;;
        package) words="--extended --manifest --help" ;;
        install|remove) words="--force --timeout --help"
            [[ $cur != -* ]] && { COMPREPLY=($(compgen -f -- "$cur")); return; } ;;
        key) words="Home Back Power Menu Up Down Left Right OK 0 1 2 3 4 5 6 7 8 9 --device --session --help" ;;
        watch) words="IApplicationManager::onError IApplicationManager::onKeepAlive IApplicationManager::onStateChange
                      IServiceManager::onServiceListChange IWindowManager::onWindowListChange
                      IWindowManager::onFocusChange IPackageInstaller::onRequestEnd --help" ;;
        *) words="--help" ;;
    esac
    COMPREPLY=($(compgen -W "$words" -- "$cur"))
}
complete -F _velmoractl velmoractl
