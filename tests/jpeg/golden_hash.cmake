# Encodes a checked-in image with zjpeg and compares the SHA-256 of the output
# with a pinned value: any change in the encoder's bytes fails here.
# Variables: ZJPEG, INPUT, OUTPUT, EXPECTED, ARGS (semicolon list).
execute_process(COMMAND ${ZJPEG} ${INPUT} ${OUTPUT} ${ARGS} RESULT_VARIABLE rc)
if(NOT rc EQUAL 0)
  message(FATAL_ERROR "zjpeg exited with ${rc}")
endif()
file(SHA256 ${OUTPUT} actual)
if(NOT actual STREQUAL EXPECTED)
  message(FATAL_ERROR "encoder output changed: ${actual}, pinned ${EXPECTED}")
endif()
