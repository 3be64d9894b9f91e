# Completion of talvex in fish.

complete -c talvex -f
complete -c talvex -l input -s i -r -F -d 'Core file'
complete -c talvex -l output -s o -x -a '(__fish_complete_directories)' -d 'Directory of the reports'
complete -c talvex -l mem_dir -s m -x -a '(__fish_complete_directories)' -d 'Memory directory'
complete -c talvex -l rocm_dir -s r -x -a '(__fish_complete_directories)' -d 'ROCm installation'
complete -c talvex -l log_level -s l -x -a 'error info debug' -d 'What to log'
complete -c talvex -l dis_all -d 'List every code object'
complete -c talvex -l version -s v -d 'Print the version'
complete -c talvex -l help -s h -d 'Print a summary of the options'
