# What may stand next, as the program itself knows it.
function __zelvek_complete
    set -l words (commandline -opc) (commandline -ct)
    zelvek complete -- $words[2..-1] 2>/dev/null
end
complete -c zelvek -f -a '(__zelvek_complete)'
