# Makes the folders of Debian's arm64 files that build and run the arm64 library. Source this file.
#
#   build/arm64-root/full   libraries to build with, a Java runtime, the needs of the tests and the virtual machine
#   build/arm64-root/jre    a Java runtime, its dependencies and libudev: a machine with nothing else
#
# The packages of this machine's release are unpacked, not installed, so that no arm64 program has to run. apt uses
# separate settings, lists and state below build/arm64-root/apt: those of the machine do not change.
# shellcheck shell=bash
# shellcheck disable=SC2154  # root is set by common.sh
arm64_place=$root/build/arm64-root
arm64_apt=$arm64_place/apt

arm64_base=(base-files base-passwd bash coreutils dash)
arm64_jre=("${arm64_base[@]}" default-jre-headless libudev1)
arm64_full=("${arm64_jre[@]}" libusb-1.0-0-dev libudev-dev libhidapi-dev libgtest-dev libgmock-dev
    bsdutils busybox-static mount passwd python3 udev util-linux)

# arm64_set_up SUITE MIRROR: writes the settings of apt, to be selected by APT_CONFIG.
arm64_set_up() {
    mkdir -p "$arm64_apt"/{lists,archives}/partial
    : >"$arm64_apt/status"
    echo "deb [signed-by=/usr/share/keyrings/debian-archive-keyring.gpg] $2 $1 main" >"$arm64_apt/sources.list"
    cat >"$arm64_apt/apt.conf" <<END
APT::Architecture "arm64";
APT::Architectures { "arm64"; };
APT::Install-Recommends "false";
APT::Sandbox::User "root";
Acquire::Languages "none";
Dir::Etc::SourceList "$arm64_apt/sources.list";
Dir::Etc::SourceParts "/dev/null";
Dir::State::Lists "$arm64_apt/lists";
Dir::State::Status "$arm64_apt/status";
Dir::Cache "$arm64_apt";
Dir::Cache::Archives "$arm64_apt/archives";
END
}

# arm64_unpack NAME PACKAGE...: makes a root from these packages and all that were downloaded before.
arm64_unpack() {
    local place=$arm64_place/$1 folder
    shift
    apt-get install --yes --download-only "$@"
    mkdir -p "$place/usr"/{bin,lib,sbin}
    for folder in bin lib sbin; do ln -s "usr/$folder" "$place/$folder"; done
    # shellcheck disable=SC2016  # expanded by each shell
    find "$arm64_apt/archives" -maxdepth 1 -name '*.deb' -print0 |
        xargs -0 -n 1 -P 2 sh -c 'dpkg-deb --fsys-tarfile "$2" | tar -x --keep-directory-symlink -C "$1"' unpack "$place"
    # Replaces the installation scripts of the packages.
    cp "$place/usr/share/base-passwd/passwd.master" "$place/etc/passwd"
    cp "$place/usr/share/base-passwd/group.master" "$place/etc/group"
    ln -s ../lib/jvm/default-java/bin/java "$place/usr/bin/java"
}

# Writes dpkg's data about the libraries as if they were installed. script/package reads from it the dependencies of a
# package that is linked with them. File names contain the path of the root.
arm64_know_libraries() {
    local place=$arm64_place/full known=$arm64_place/full/var/lib/dpkg control=$arm64_apt/control deb name
    mkdir -p "$known/info"
    echo 1 >"$known/info/format"
    printf '%s\n' "$(dpkg --print-architecture)" arm64 >"$known/arch"
    for deb in "$arm64_apt"/archives/lib*_arm64.deb; do
        rm -rf "$control"
        dpkg-deb -e "$deb" "$control"
        [[ -e $control/shlibs ]] || continue
        name=$known/info/$(dpkg-deb -f "$deb" Package):arm64
        sed '/^Package:/a Status: install ok installed' "$control/control" >>"$known/status"
        echo >>"$known/status"
        cp "$control/shlibs" "$name.shlibs"
        [[ ! -e $control/symbols ]] || cp "$control/symbols" "$name.symbols"
        dpkg-deb --fsys-tarfile "$deb" | tar -t | sed "s#^\./\(usr/\)\?#$place/usr/#" >"$name.list"
    done
}

arm64_make() {
    local suite
    suite=$(. /etc/os-release && echo "${VERSION_CODENAME-}")
    arm64_set_up "$suite" "$1"
    export APT_CONFIG=$arm64_apt/apt.conf
    apt-get update
    arm64_unpack jre "${arm64_jre[@]}"
    arm64_unpack full "${arm64_full[@]}"
    arm64_know_libraries
}

# Makes the missing folders, for this release. Needs no network if none is missing.
make_arm64_roots() {
    local recipe mirror log=$root/build/arm64-root.log
    recipe=$(cat "${BASH_SOURCE[0]}" /etc/os-release | cksum)
    [[ ! -e $arm64_place/recipe || $(<"$arm64_place/recipe") != "$recipe" ]] || return 0
    mirror=$(own_mirror)
    [[ -n $mirror ]] || cannot "apt's sources have no archive of Debian: $0 works on Debian 12 and 13"
    say "fetching and unpacking Debian's arm64 files"
    rm -rf "$arm64_place"
    mkdir -p "$arm64_place"
    (set -e && arm64_make "$mirror") >"$log" 2>&1 </dev/null &
    wait $! || cannot "Debian's arm64 packages cannot be downloaded from $mirror: check the network and the address; the output of apt is in ${log#"$root/"}"
    echo "$recipe" >"$arm64_place/recipe"
}
