# Completions for fish.
complete -c korvane-vad -s c -l cleaned -r -F -d 'Also write the cleaned recording'
complete -c korvane-vad -s h -l help -d 'Print a summary and exit'
complete -c korvane-vad -s V -l version -d 'Print the version and exit'
