# The calibration-function library's tests.
heron_test_program(calib_tests lib/calib heron_calib)
