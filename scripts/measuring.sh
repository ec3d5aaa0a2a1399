# shellcheck shell=bash
# For the scripts that measure and write what they found into a document; to be sourced by them.

# Sets bin, work and into from --bin DIR, --work DIR and --print; what is not given stays as it is. The script has a
# function `usage`.
# shellcheck disable=SC2034 # for the script
measuring_options() {
    while (($# > 0)); do
        case $1 in
            --help)
                usage
                exit 0
                ;;
            --bin | --work)
                (($# > 1)) || { echo "${0##*/}: $1 needs a value; see --help" >&2; exit 2; }
                if [[ $1 == --bin ]]; then bin=$2; else work=$2; fi
                shift
                ;;
            --print) into= ;;
            *)
                echo "${0##*/}: '$1' is not an option; see --help" >&2
                exit 2
                ;;
        esac
        shift
    done
}

# write_between MARK FILE DOCUMENT: what is between <!-- MARK --> and <!-- end of MARK --> in the document becomes the file.
write_between() {
    local whole
    whole=$(mktemp)
    awk -v mark="$1" -v file="$2" '
        $0 == "<!-- end of " mark " -->" { skip = 0 }
        !skip { print }
        $0 == "<!-- " mark " -->" { print ""; while ((getline line < file) > 0) print line; print ""; skip = 1 }' \
        "$3" >"$whole"
    cat "$whole" >"$3"
    rm "$whole"
}
