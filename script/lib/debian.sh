# What the scripts know of Debian; to be sourced.
# shellcheck shell=bash

# The archive of Debian in this machine's own sources of apt.
# shellcheck disable=SC2016  # these are no variables
own_mirror() {
    apt-get indextargets --format '$(SITE) $(COMPONENT) $(RELEASE)' 'Created-By: Packages' |
        awk '$2 == "main" && $3 !~ /[-\/]/ && $1 ~ /debian\/?$/ { print $1; exit }'
}
