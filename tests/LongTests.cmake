# Cases that prove accuracy or endurance rather than memory safety, labelled
# `long`: the optimised tree runs them, the sanitizer tree of scripts/test.sh
# leaves them out (ctest -LE long). There they took the longest on a busy
# machine: a threshold row 12 to 17 s, the placement case 49 s, the wide
# ranges 80 s. A short case of each kind stays unlabelled, so that its code
# still runs under the sanitizers: the design mode's translation row and the
# renderer's and footage cases of the accuracy suite, and the stress cases
# on flat, low-contrast, non-finite and empty input.
#
# CTest reads this file after the cases are discovered. A name that no
# longer exists is skipped silently, so ci_LongCasesAreLabelled counts the
# labelled cases. The rows' names end with the parameter as gtest prints it.
foreach(mode design robust)
    foreach(category translation rotation+zoom noise+drift fast+blur occluder video)
        if(NOT "${mode} ${category}" STREQUAL "design translation")
            string(REPLACE "+" "_" row "${mode}_${category}")
            set_tests_properties(
                "Rows/TrAccuracyThresholds.Hold/${row}  # GetParam() = ${mode} ${category}"
                PROPERTIES LABELS long)
        endif()
    endforeach()
endforeach()
set_tests_properties(
    TrAccuracySuite.PlacesTracksInsideEveryFrameWithTruthForEach
    TrStress.WideRangesAndLargeSearchAreasFollowTheContent
    PROPERTIES LABELS long)
