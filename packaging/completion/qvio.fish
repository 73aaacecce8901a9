# Completion of qvio for fish: qvio itself knows its words. Without a candidate fish completes file names.
function __qvio_candidates
    set -l words (commandline -opc)[2..] (commandline -ct)
    set -l candidates (qvio complete -- $words 2>/dev/null)
    if test (count $candidates) -gt 0
        printf '%s\n' $candidates
    else
        __fish_complete_path (commandline -ct)
    end
end
complete -c qvio -f -a '(__qvio_candidates)'
