from ctl_desk import ctl, desk  # noqa: F401
