# Each fuzz target is one source of its name.
set(fuzz_targets
    fuzz_devices
    fuzz_identity
    fuzz_messages
    fuzz_padiag_output
    fuzz_profile
    fuzz_records
    fuzz_schedule
    fuzz_settings)
