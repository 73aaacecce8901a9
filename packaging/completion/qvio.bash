# Completion of qvio for bash: qvio itself knows its words. Without a candidate bash completes file names.
_qvio() {
  local typed=${COMP_LINE:0:COMP_POINT} words word
  read -ra words <<<"$typed"
  [[ $typed == *[[:space:]] ]] && words+=("")
  word=${words[-1]}
  mapfile -t COMPREPLY < <(qvio complete -- "${words[@]:1}" 2>/dev/null | cut -f 1)
  # bash takes a colon as the end of a word, and wants what comes after it.
  if [[ $word == *:* && $COMP_WORDBREAKS == *:* ]]; then
    COMPREPLY=("${COMPREPLY[@]#"${word%:*}:"}")
  fi
}
complete -o default -F _qvio qvio
