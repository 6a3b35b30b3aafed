# Runs the demo conversions on the built-in sample disk.
file(MAKE_DIRECTORY ${WORKDIR})
execute_process(COMMAND ${ZEBSAMPLE} ${WORKDIR}/sample.zeb COMMAND_ERROR_IS_FATAL ANY)
execute_process(COMMAND ${ZEBCONV} -i ${WORKDIR}/sample.zeb -o ${WORKDIR}/copy.zeb COMMAND_ERROR_IS_FATAL ANY)
