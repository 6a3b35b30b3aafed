# The demo: builds sample disks with zebsample and converts them with zebconv
# through every track-level form and back, checking that the sectors survive.
# Inputs: ZEBCONV, ZEBSAMPLE, WORKDIR.
file(REMOVE_RECURSE ${WORKDIR})
file(MAKE_DIRECTORY ${WORKDIR})

function(run)
  string(REPLACE ";" " " shown "${ARGN}")
  message("\n$ ${shown}")
  execute_process(COMMAND ${ARGN} WORKING_DIRECTORY ${WORKDIR} RESULT_VARIABLE rc)
  if(NOT rc EQUAL 0)
    message(FATAL_ERROR "demo step failed with status ${rc}: ${shown}")
  endif()
endfunction()

function(same a b)
  execute_process(COMMAND ${CMAKE_COMMAND} -E compare_files ${a} ${b}
                  WORKING_DIRECTORY ${WORKDIR} RESULT_VARIABLE rc)
  if(NOT rc EQUAL 0)
    message(FATAL_ERROR "demo: ${a} and ${b} differ")
  endif()
  message("-- ${a} and ${b} are identical")
endfunction()

# A 1.2 MB PC-98 style plain image: to ZEB, to a raw ZEB, and back.
run(${ZEBSAMPLE} sample.hdm)
run(${ZEBCONV} -i sample.hdm -o sample.zeb)
run(${ZEBCONV} -i sample.zeb -o sample-raw.zeb -f raw)
run(${ZEBCONV} -i sample-raw.zeb -o back-raw.hdm)
same(sample.hdm back-raw.hdm)

# The same disk through HFE.
run(${ZEBCONV} -i sample.hdm -o sample.hfe)
run(${ZEBCONV} -i sample.hfe -o back-hfe.hdm)
same(sample.hdm back-hfe.hdm)

# A D88 disk with an FM track and a deleted sector, decoded with MB8877 rules.
run(${ZEBSAMPLE} sample.d88)
run(${ZEBCONV} -i sample.d88 -o sample-d88.zeb)
run(${ZEBCONV} -i sample-d88.zeb -o back.d88 -a mb8877)
same(sample.d88 back.d88)
# An IBM PC 360 KB disk captured as flux (SCP), decoded back to its sectors.
run(${ZEBSAMPLE} sample.2d)
run(${ZEBSAMPLE} sample.scp)
run(${ZEBCONV} -i sample.scp -o back-scp.2d)
same(sample.2d back-scp.2d)
# What is on the D88 disk, and a picture of it.
run(${ZEBSCAN} --tracks 0-2 --map sample.svg sample.d88)
message("\nDemo finished: every conversion reproduced its source.")
