# zsh -f offered.zsh MANUAL WORD...: what zsh offers for the last word. The functions of its line
# editor print what they are given.
manual=$1
shift
typed=${@[-1]}
matching() { print -l -- ${(M)@:#${~typed}*} }
_describe() { matching ${${(P)${@[-1]}}%%:*} }
compadd() { if [[ $1 == -a ]]; then matching ${(P)2}; else matching $@; fi }
_files() { matching *(N) }
compset() { true }
program=$1
words=("$@")
CURRENT=$#words
source $manual/_$program
