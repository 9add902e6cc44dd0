<html><body>Microsoft</body></html>
