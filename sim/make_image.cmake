# Writes a built-in scenario's flash image from its recipe: the arguments of
# crash-dump-sim, one a line ("#" starts a comment line).
#   cmake -DTOOL=crash-dump-sim -DRECIPE=NAME.recipe -DIMAGE=NAME.img -P make_image.cmake
file(STRINGS ${RECIPE} arguments REGEX "^[^#]")
# Only some generators make an output's directory before running its command.
get_filename_component(directory ${IMAGE} DIRECTORY)
file(MAKE_DIRECTORY ${directory})
execute_process(COMMAND ${TOOL} ${arguments} OUTPUT_FILE ${IMAGE} RESULT_VARIABLE status)
if(NOT status EQUAL 0)
  file(REMOVE ${IMAGE})
  message(FATAL_ERROR "${RECIPE}: crash-dump-sim ${arguments} failed (${status})")
endif()
