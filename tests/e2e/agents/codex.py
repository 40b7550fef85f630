"""Codex: written next."""


def run(ctx):
    ctx.skip("not written yet")
