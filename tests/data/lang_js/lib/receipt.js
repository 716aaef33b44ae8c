class Receipt {
  print() {
    return 'receipt';
  }
}

module.exports = Receipt;
