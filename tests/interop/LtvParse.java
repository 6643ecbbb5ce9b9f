// BouncyCastle's reading of the long-term attributes in tests/interop/ltv.sh.
//
// Usage: java LtvParse SIGNATURE
//
// For each signer prints one line: the number of time-stamp tokens (each parsed as a TimeStampToken), the
// certificates of the certificate-values attribute, and the CRLs and OCSP responses of the revocation-values
// attribute (org.bouncycastle.asn1.esf.RevocationValues), each OCSP response with its first status. Fails
// when the first certificate value or an OCSP response is not about the signer's certificate.
import java.math.BigInteger;
import java.nio.file.Files;
import java.nio.file.Paths;

import org.bouncycastle.asn1.ASN1Encodable;
import org.bouncycastle.asn1.ASN1Sequence;
import org.bouncycastle.asn1.cms.Attribute;
import org.bouncycastle.asn1.cms.AttributeTable;
import org.bouncycastle.asn1.cms.ContentInfo;
import org.bouncycastle.asn1.esf.RevocationValues;
import org.bouncycastle.asn1.ocsp.BasicOCSPResponse;
import org.bouncycastle.asn1.ocsp.SingleResponse;
import org.bouncycastle.asn1.pkcs.PKCSObjectIdentifiers;
import org.bouncycastle.asn1.x509.Certificate;
import org.bouncycastle.asn1.x509.CertificateList;
import org.bouncycastle.cms.CMSSignedData;
import org.bouncycastle.cms.SignerInformation;
import org.bouncycastle.tsp.TimeStampToken;

public final class LtvParse {
  private LtvParse() {}

  private static final String[] STATUS = {"good", "revoked", "unknown"};

  private static void check(boolean condition, String what) {
    if (!condition) throw new IllegalStateException(what);
  }

  public static void main(String[] args) throws Exception {
    CMSSignedData signed = new CMSSignedData(Files.readAllBytes(Paths.get(args[0])));
    for (SignerInformation signer : signed.getSignerInfos().getSigners()) {
      AttributeTable table = signer.getUnsignedAttributes();
      StringBuilder line = new StringBuilder();
      int tokens = 0;
      Attribute stamps = table.get(PKCSObjectIdentifiers.id_aa_signatureTimeStampToken);
      for (ASN1Encodable value : stamps == null ? new ASN1Encodable[0] : stamps.getAttrValues().toArray()) {
        new TimeStampToken(ContentInfo.getInstance(value));
        tokens++;
      }
      line.append("tokens=").append(tokens);
      Attribute certValues = table.get(PKCSObjectIdentifiers.id_aa_ets_certValues);
      if (certValues == null) {
        System.out.println(line.append(" certificates=0 crls=0 ocsp=0"));
        continue;
      }
      ASN1Sequence certs = ASN1Sequence.getInstance(certValues.getAttrValues().getObjectAt(0));
      for (int i = 0; i < certs.size(); i++) Certificate.getInstance(certs.getObjectAt(i));
      BigInteger serial = signer.getSID().getSerialNumber();
      check(Certificate.getInstance(certs.getObjectAt(0)).getSerialNumber().getValue().equals(serial),
          "the signer's certificate is not the first certificate value");
      line.append(" certificates=").append(certs.size());
      Attribute revocation = table.get(PKCSObjectIdentifiers.id_aa_ets_revocationValues);
      RevocationValues values = RevocationValues.getInstance(revocation.getAttrValues().getObjectAt(0));
      CertificateList[] crls = values.getCrlVals();
      BasicOCSPResponse[] responses = values.getOcspVals();
      line.append(" crls=").append(crls.length);
      for (CertificateList crl : crls) line.append(" crl:").append(crl.getIssuer());
      line.append(" ocsp=").append(responses.length);
      for (BasicOCSPResponse response : responses) {
        SingleResponse first = SingleResponse.getInstance(response.getTbsResponseData().getResponses().getObjectAt(0));
        check(first.getCertID().getSerialNumber().getValue().equals(serial), "an OCSP response about another");
        line.append(" ocsp:").append(STATUS[first.getCertStatus().getTagNo()]);
      }
      System.out.println(line);
    }
  }
}
