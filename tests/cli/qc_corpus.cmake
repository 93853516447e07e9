# The QC corpus score: realistic programmes, clean and with injected faults, against the targets
# (docs/qc.md). Needs python3-numpy, sox and espeak-ng (scripts/packages/qc-corpus.txt).
find_program(KVAUDIO_SOX sox)
find_program(KVAUDIO_ESPEAK espeak-ng)
if(KVAUDIO_BUILD_TOOLS AND KVAUDIO_SOX AND KVAUDIO_ESPEAK AND EXISTS /usr/bin/python3)
  add_test(NAME QcCorpus.ScoreMeetsTargets
           COMMAND bash ${PROJECT_SOURCE_DIR}/scripts/qc-conformance $<TARGET_FILE:kvaudio>
                   ${CMAKE_BINARY_DIR}/qc-corpus)
  set_tests_properties(QcCorpus.ScoreMeetsTargets PROPERTIES LABELS conformance TIMEOUT 600)
endif()
