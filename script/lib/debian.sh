# Functions for Debian; source this file.
# shellcheck shell=bash

# The archive of Debian in apt's sources on this machine.
# shellcheck disable=SC2016  # not variables of the shell
own_mirror() {
    apt-get indextargets --format '$(SITE) $(COMPONENT) $(RELEASE)' 'Created-By: Packages' |
        awk '$2 == "main" && $3 !~ /[-\/]/ && $1 ~ /debian\/?$/ { print $1; exit }'
}
