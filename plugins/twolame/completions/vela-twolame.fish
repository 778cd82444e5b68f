complete -c vela-twolame -x -a '(__fish_complete_subcommand)'
complete -c vela-twolame -n '__fish_is_first_token' -s h -l help -d 'Print this help message and exit'
complete -c vela-twolame -n '__fish_is_first_token' -l version -d 'Print the version'
complete -c vela-twolame -n '__fish_is_first_token' -l print-folder -d 'Print the folder that is put in front of LD_LIBRARY_PATH'
