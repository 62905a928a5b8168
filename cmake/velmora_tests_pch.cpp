// Nothing but a place for the precompiled header of the tests.
