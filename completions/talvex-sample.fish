# Completion of talvex-sample in fish.

complete -c talvex-sample -f
complete -c talvex-sample -l output -x -a '(__fish_complete_directories)' -d 'Where to write the dump'
complete -c talvex-sample -l reason -x -a 'queue-error vm-fault signal' -d 'Why the dump was taken'
complete -c talvex-sample -l format -x -a '0 1' -d 'Header version of the core file'
complete -c talvex-sample -l agents -x -d 'GPU agents'
complete -c talvex-sample -l queues -x -d 'Queues'
complete -c talvex-sample -l waves -x -d 'Waves of each agent'
complete -c talvex-sample -l vgprs -x -d 'Vector registers a lane'
complete -c talvex-sample -l faulting -x -d 'Work-groups that fault'
complete -c talvex-sample -l code-object -r -F -d 'Code object to load on every agent'
complete -c talvex-sample -l seed -x -d 'Number from which all details are made'
complete -c talvex-sample -l help -d 'Print a summary of the options'
