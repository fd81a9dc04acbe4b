#!/bin/bash
# completion.bash FOLDER: what bash offers after words typed so far, by the completion that FOLDER holds.
set -u
source "$1/bash/twintrue" || exit 1
compopt() { :; }  # only a shell that completes right now knows it
failed=0

# expect "words typed" "offered ..." "not offered ...": of several words each has to be there, or not.
expect() {
  read -ra COMP_WORDS <<<"$1"
  [[ $1 == *" " ]] && COMP_WORDS+=("")
  COMP_CWORD=$((${#COMP_WORDS[@]} - 1))
  COMPREPLY=()
  _twintrue
  local word
  for word in $2; do
    [[ " ${COMPREPLY[*]} " == *" $word "* ]] || { echo "after '$1' $word is not offered: ${COMPREPLY[*]}"; failed=1; }
  done
  for word in $3; do
    [[ " ${COMPREPLY[*]} " == *" $word "* ]] && { echo "after '$1' $word is offered"; failed=1; }
  done
}

expect "twintrue " "calibrate inspect lens view" "--lens new"
expect "twintrue cal" "calibrate" "inspect"
expect "twintrue calibrate --preset " "default fast wide" "--lens"
expect "twintrue calibrate frame.png --preset f" "fast" "default"
expect "twintrue calibrate frame.png --no" "--no-refine" "--layout"
expect "twintrue lens " "new" "lens-text"
expect "twintrue inspect lens" "lens lens-text" "new"
expect "twintrue inspect stage " "response" "left"
expect "twintrue inspect stage response --side " "left right" "response"
expect "twintrue presets show " "default fast wide" ""
exit $failed
