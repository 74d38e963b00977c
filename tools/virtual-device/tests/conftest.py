from ctl_desk import desk  # noqa: F401
