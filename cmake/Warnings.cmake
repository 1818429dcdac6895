# The warnings of the house; every target links this.
add_library(house_warnings INTERFACE)
target_compile_options(house_warnings INTERFACE
    -Wall -Wextra -Wpedantic  # the compiler's own judgement
    -Wshadow                  # a name that hides another misleads its reader
    -Wconversion              # a value that does not fit is a fault, not a rounding
    -Werror)                  # a warning that stays is a warning nobody reads
