# Makes warnings errors; link this target to all targets of this project.
add_library(orvex_strict INTERFACE)
target_compile_options(orvex_strict INTERFACE
  -Wall -Wextra -Wpedantic -Wconversion -Wshadow -Wsign-conversion -Werror)
