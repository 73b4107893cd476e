# Completion of nq360 for fish.
set -l commands analyze export match audio space

complete -c nq360 -n "not __fish_seen_subcommand_from $commands" -f
complete -c nq360 -n "not __fish_seen_subcommand_from $commands" -l version -d 'show the version'
complete -c nq360 -n "not __fish_seen_subcommand_from $commands" -a analyze -d 'describe pictures and movies'
complete -c nq360 -n "not __fish_seen_subcommand_from $commands" -a export -d 'stitch two halves into one panorama'
complete -c nq360 -n "not __fish_seen_subcommand_from $commands" -a match -d 'propose corrections of the lenses'
complete -c nq360 -n "not __fish_seen_subcommand_from $commands" -a audio -d 'write the sound of a movie'
complete -c nq360 -n "not __fish_seen_subcommand_from $commands" -a space -d 'tell how much room is free'
complete -c nq360 -s h -l help -d 'show help'

complete -c nq360 -n '__fish_seen_subcommand_from analyze' -l json -d 'print one JSON object a line and file'
complete -c nq360 -n '__fish_seen_subcommand_from analyze' -l thumbnails -r -d 'write thumbnails into this folder' \
    -f -a '(__fish_complete_directories)'
complete -c nq360 -n '__fish_seen_subcommand_from analyze' -l width -x -d 'width of the thumbnails in pixels'

complete -c nq360 -n '__fish_seen_subcommand_from export' -l preview -d 'write one panorama as a small picture'
complete -c nq360 -n '__fish_seen_subcommand_from export' -l size -x -d 'pixels of the panorama'
complete -c nq360 -n '__fish_seen_subcommand_from export' -l tilt -x -d 'turn the panorama, whole degrees'
complete -c nq360 -n '__fish_seen_subcommand_from export' -l correct1 -x -d 'add Y,U,V to lens 1'
complete -c nq360 -n '__fish_seen_subcommand_from export' -l correct2 -x -d 'add Y,U,V to lens 2'
complete -c nq360 -n '__fish_seen_subcommand_from export' -l band -r -d 'lay this picture over the seam'
complete -c nq360 -n '__fish_seen_subcommand_from export' -l sound -x -a '1 2 none' -d 'whose sound the movie gets'
complete -c nq360 -n '__fish_seen_subcommand_from export' -l end -x -d 'where to end'
complete -c nq360 -n '__fish_seen_subcommand_from export' -l end2 -x -d 'where to end in lens 2'
complete -c nq360 -n '__fish_seen_subcommand_from export' -l date -x -d 'capture date in the metadata'

complete -c nq360 -n '__fish_seen_subcommand_from export match' -l turn1 -x -d 'turn lens picture 1, degrees'
complete -c nq360 -n '__fish_seen_subcommand_from export match' -l turn2 -x -d 'turn lens picture 2, degrees'
complete -c nq360 -n '__fish_seen_subcommand_from export match' -l start -x -d 'where to begin'
complete -c nq360 -n '__fish_seen_subcommand_from export match' -l start2 -x -d 'where to begin in lens 2'

complete -c nq360 -n '__fish_seen_subcommand_from export audio' -s f -l force -d 'replace the output when it exists'
complete -c nq360 -n '__fish_seen_subcommand_from analyze export match audio' -s q -l quiet -d 'say nothing but errors'
complete -c nq360 -n '__fish_seen_subcommand_from analyze export match audio' -s v -l verbose \
    -d 'show what the library logs'

complete -c nq360 -n '__fish_seen_subcommand_from space' -l bytes -d 'print the number of bytes alone'
