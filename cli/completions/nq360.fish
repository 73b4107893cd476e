# Completion of nq360 for fish.
set -l commands analyze export batch join match audio space view

complete -c nq360 -n "not __fish_seen_subcommand_from $commands" -f
complete -c nq360 -n "not __fish_seen_subcommand_from $commands" -l version -d 'show the version'
complete -c nq360 -n "not __fish_seen_subcommand_from $commands" -a analyze -d 'describe pictures and movies'
complete -c nq360 -n "not __fish_seen_subcommand_from $commands" -a export -d 'stitch two halves into one panorama'
complete -c nq360 -n "not __fish_seen_subcommand_from $commands" -a batch -d 'make all panoramas of folders'
complete -c nq360 -n "not __fish_seen_subcommand_from $commands" -a join -d 'put the parts of a movie together'
complete -c nq360 -n "not __fish_seen_subcommand_from $commands" -a match -d 'propose what makes the lenses meet'
complete -c nq360 -n "not __fish_seen_subcommand_from $commands" -a audio -d 'write the sound of a movie'
complete -c nq360 -n "not __fish_seen_subcommand_from $commands" -a space -d 'tell how much room is free'
complete -c nq360 -n "not __fish_seen_subcommand_from $commands" -a view -d 'show the shots of a folder'
complete -c nq360 -s h -l help -d 'show help'

complete -c nq360 -n '__fish_seen_subcommand_from analyze' -s r -l recursive -d 'in folders, the folders in them too'
complete -c nq360 -n '__fish_seen_subcommand_from analyze' -l json -d 'print one JSON object a line and file'
complete -c nq360 -n '__fish_seen_subcommand_from analyze' -l thumbnails -r -d 'write thumbnails into this folder' \
    -f -a '(__fish_complete_directories)'
complete -c nq360 -n '__fish_seen_subcommand_from analyze' -l width -x -d 'width of the thumbnails in pixels'
complete -c nq360 -n '__fish_seen_subcommand_from analyze' -l jobs -x -d 'files to describe at a time'

complete -c nq360 -n '__fish_seen_subcommand_from export' -l preview -d 'write one panorama as a small picture'
complete -c nq360 -n '__fish_seen_subcommand_from export batch' -l size -x -d 'pixels of the panorama'
complete -c nq360 -n '__fish_seen_subcommand_from export batch' -l tilt -x -d 'turn the panorama, degrees'
complete -c nq360 -n '__fish_seen_subcommand_from export batch' -l correct1 -x -d 'add Y,U,V to lens 1'
complete -c nq360 -n '__fish_seen_subcommand_from export batch' -l correct2 -x -d 'add Y,U,V to lens 2'
complete -c nq360 -n '__fish_seen_subcommand_from export batch' -l band -r -d 'lay this picture over the seam'
complete -c nq360 -n '__fish_seen_subcommand_from export batch' -l sound -x -a '1 2 none' -d 'whose sound the movie gets'
complete -c nq360 -n '__fish_seen_subcommand_from export batch' -l date -x -d 'capture date in the metadata'
complete -c nq360 -n '__fish_seen_subcommand_from export batch' -l yaw -x -d 'turn the look to the right, degrees'
complete -c nq360 -n '__fish_seen_subcommand_from export batch' -l pitch -x -d 'turn the look up, degrees'
complete -c nq360 -n '__fish_seen_subcommand_from export batch' -l roll -x -d 'turn the horizon clockwise, degrees'
complete -c nq360 -n '__fish_seen_subcommand_from export batch' -l gain1 -x -d 'multiply Y,U,V of lens 1'
complete -c nq360 -n '__fish_seen_subcommand_from export batch' -l gain2 -x -d 'multiply Y,U,V of lens 2'
complete -c nq360 -n '__fish_seen_subcommand_from export batch' -l feather -x -d 'mix the lenses about the seam, degrees'
complete -c nq360 -n '__fish_seen_subcommand_from export batch' -l quality -x -d 'of a picture, 1 to 100'
complete -c nq360 -n '__fish_seen_subcommand_from export batch' -l bit-rate -x -d 'of a movie, bits per second'
complete -c nq360 -n '__fish_seen_subcommand_from export batch' -l web -d 'put the index of a movie in front'
complete -c nq360 -n '__fish_seen_subcommand_from export' -l jobs -x -d 'parts of a movie made at a time'
complete -c nq360 -n '__fish_seen_subcommand_from export batch' -l partial -d 'export what there is of damaged inputs'
complete -c nq360 -n '__fish_seen_subcommand_from export batch' -l exact -d 'make what the plain function of the library makes'
complete -c nq360 -n '__fish_seen_subcommand_from export batch' -l match -d 'match the lenses first'
complete -c nq360 -n '__fish_seen_subcommand_from export' -l part -x -d 'make the K-th of N parts, K/N'
complete -c nq360 -n '__fish_seen_subcommand_from export batch' -l dry-run -d 'check everything and write nothing'

complete -c nq360 -n '__fish_seen_subcommand_from batch' -l to -x -a '(__fish_complete_directories)' \
    -d 'folder of the panoramas'
complete -c nq360 -n '__fish_seen_subcommand_from batch' -s r -l recursive -d 'the folders in them too'
complete -c nq360 -n '__fish_seen_subcommand_from batch' -l pairs -x -d 'how the halves are called'
complete -c nq360 -n '__fish_seen_subcommand_from batch' -l jobs -x -d 'shots made at a time'

complete -c nq360 -n '__fish_seen_subcommand_from export batch match' -l turn1 -x -d 'turn lens picture 1, degrees'
complete -c nq360 -n '__fish_seen_subcommand_from export batch match' -l turn2 -x -d 'turn lens picture 2, degrees'
complete -c nq360 -n '__fish_seen_subcommand_from export batch match' -l start -x -d 'where to begin'
complete -c nq360 -n '__fish_seen_subcommand_from export batch match' -l start2 -x -d 'where to begin in lens 2'
complete -c nq360 -n '__fish_seen_subcommand_from export batch match' -l end -x -d 'where to end'
complete -c nq360 -n '__fish_seen_subcommand_from export batch match' -l end2 -x -d 'where to end in lens 2'

complete -c nq360 -n '__fish_seen_subcommand_from export batch audio' -l aac -d 'write the sound as AAC'
complete -c nq360 -n '__fish_seen_subcommand_from export batch join audio' -s f -l force -d 'replace the output when it exists'
complete -c nq360 -n '__fish_seen_subcommand_from analyze export batch join match audio view' -s q -l quiet -d 'say nothing but errors'
complete -c nq360 -n '__fish_seen_subcommand_from analyze export batch join match audio view' -s v -l verbose \
    -d 'show what the library logs'

complete -c nq360 -n '__fish_seen_subcommand_from space' -l bytes -d 'print the number of bytes alone'
complete -c nq360 -n '__fish_seen_subcommand_from export batch join match space' -l json -d 'print JSON'

complete -c nq360 -n '__fish_seen_subcommand_from view' -l to -x -a '(__fish_complete_directories)' -d 'where exports go'
complete -c nq360 -n '__fish_seen_subcommand_from view' -l port -x -d 'port to listen on, 0 for any'
complete -c nq360 -n '__fish_seen_subcommand_from view' -l no-browser -d 'print the address only'
complete -c nq360 -n '__fish_seen_subcommand_from view' -l read-only -d 'write nothing into the folders'
complete -c nq360 -n '__fish_seen_subcommand_from view' -l json -d 'print JSON'

complete -c nq360 -n '__fish_seen_subcommand_from batch' -l slurm -d 'hand the shots to Slurm'
complete -c nq360 -n '__fish_seen_subcommand_from batch' -l split -x -d 'make longer movies in parts of this length'
complete -c nq360 -n '__fish_seen_subcommand_from batch' -l status -x -a '(__fish_complete_directories)' \
    -d 'tell what Slurm has done'
complete -c nq360 -n '__fish_seen_subcommand_from batch' -l task -x -d 'make one task'
