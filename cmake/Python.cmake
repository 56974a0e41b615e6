# PYTHON3: a Python with NumPy, for the scripts of tools. The machine's own comes first: the NumPy of its packages
# belongs to it.
function(sonivo_has_numpy result python)
  execute_process(COMMAND "${python}" -c "import numpy" RESULT_VARIABLE failure OUTPUT_QUIET ERROR_QUIET)
  if(failure)
    set(${result} FALSE PARENT_SCOPE)
  endif()
endfunction()

find_program(PYTHON3 python3 PATHS /usr/bin VALIDATOR sonivo_has_numpy NO_DEFAULT_PATH)
find_program(PYTHON3 python3 VALIDATOR sonivo_has_numpy)
if(NOT PYTHON3)
  message(FATAL_ERROR "Python 3 with NumPy is missing; install it (on Debian: apt install python3-numpy)")
endif()
