# shellcheck shell=sh
# For scripts that take packages from where the machine's own come from.

# Prints the name of the machine's release, such as bookworm.
# shellcheck source=/dev/null
debian_release() { (. /etc/os-release && echo "${VERSION_CODENAME:-stable}"); }

# Prints the machine's own apt entry for that release as "[signed-by=KEYRING] URI", or "URI"; nothing when it has none.
# Not the entry of its security updates, nor of another vendor's packages.
debian_entry() {
    awk -v release="$(debian_release)" -v RS= -F '\n' '
        $0 !~ "(^|\n)Suites:([^\n]* )?" release "( |\n|$)" || !/(^|\n)Types:[^\n]*deb/ { next }
        {
            uri = signed = ""
            for (i = 1; i <= NF; i++) {
                if ($i ~ /^URIs:/) { split($i, word, " "); uri = word[2] }
                if ($i ~ /^Signed-By: *\//) { split($i, word, " "); signed = "[signed-by=" word[2] "] " }
            }
            if (uri != "") { print signed uri; exit }
        }' /etc/apt/sources.list.d/*.sources 2>/dev/null | grep . && return
    cat /etc/apt/sources.list /etc/apt/sources.list.d/*.list 2>/dev/null |
        sed -n 's/^deb  *\(\[[^]]*\] *\)\{0,1\}\([^ ]*\)  *'"$(debian_release)"' .*/\1\2/p' | head -n 1
}
