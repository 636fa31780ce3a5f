version: str
