from preview_desk import preview, scratch  # noqa: F401
