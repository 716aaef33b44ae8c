def split_words(text):
    return text.split()
